#ifndef VELLUMENT_TOOLKIT_CKHTTP_TRANSPORT_H
#define VELLUMENT_TOOLKIT_CKHTTP_TRANSPORT_H

// One client connection: TCP with a non-blocking connect, TLS over OpenSSL when the URL says so.

#include <string>

#include "toolkit/CkHttp_Internal.h"

typedef struct ssl_st SSL;

namespace ckhttp {

// The TLS policy of one CkHttp object. tls13Off is the object's memory of a server that could
// not read a TLS 1.3 hello.
struct TlsPolicy {
    bool tls13Off = false;
    bool verify = false;
    std::string caFile;  // empty: the system's store
};

class Connection : public Source {
public:
    Connection() {}
    ~Connection() override;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Connects to the URL's host and port and runs the TLS handshake if the URL asks for it,
    // with its fall-backs. False, with the reasons in the trail, when no connection came about.
    bool open(const Url& url, TlsPolicy& policy, int connectTimeoutMs, Trail& trail);
    // Sends all bytes, waiting at most idleMs for each step of progress.
    bool sendAll(const char* data, std::size_t size, int idleMs, Trail& trail);
    long receive(char* buffer, std::size_t size, int timeoutMs) override;
    // Whether the connection still looks usable for another request.
    bool alive();
    void close();

private:
    enum Handshake { HS_OK, HS_NO_SERVER_HELLO, HS_AFTER_HELLO, HS_VERIFY_FAILED, HS_TCP_FAILED };
    bool connectTcp(const Url& url, int timeoutMs, Trail& trail);
    Handshake handshake(const Url& url, const TlsPolicy& policy, int minVersion, int maxVersion, int timeoutMs,
                        Trail& trail);
    bool waitFor(bool forWrite, int timeoutMs);

    int fd_ = -1;
    SSL* ssl_ = nullptr;
};

} // namespace ckhttp

#endif
