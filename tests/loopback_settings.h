#ifndef VELLUMENT_TESTS_LOOPBACK_SETTINGS_H
#define VELLUMENT_TESTS_LOOPBACK_SETTINGS_H

// Points the library's filing service at a loopback address in Settings.ini of the given local
// application data directory (disk form).

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include <vellument/Ostrel_IniFile.h>

namespace loopback {

inline std::string service_url(int port)
{
    return "https://127.0.0.1:" + std::to_string(port) + "/supportservices.asmx";
}

// A socket bound to a free port of 127.0.0.1, address filled in; -1 on failure.
inline int bound_loopback_socket(sockaddr_in& address)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    address = sockaddr_in{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        if (fd >= 0)
            close(fd);
        return -1;
    }
    return fd;
}

// A loopback port that refuses every connection at once: bound for the rest of the process and
// never listening, so that no other program can take it.
inline int refusing_port()
{
    static const int port = [] {
        sockaddr_in address{};
        if (bound_loopback_socket(address) < 0)
            return 1;
        return static_cast<int>(ntohs(address.sin_port));
    }();
    return port;
}

// Test mode with the status server at url.
inline void point_settings_at(const std::string& appdata, const std::string& url)
{
    const std::string settings = appdata + "/Settings.ini";
    Ostrel::Profile::WritePrivateProfileStringA("DEBUG", "TestMode", "Y", settings.c_str());
    Ostrel::Profile::WritePrivateProfileStringA("DEBUG", "W2StatusServerAddress", url.c_str(), settings.c_str());
}

} // namespace loopback

#endif
