#ifndef VELLUMENT_FILING_SERVICE_SERVER_H
#define VELLUMENT_FILING_SERVICE_SERVER_H

#include <string>

namespace fs_server {

struct Options {
    std::string data;
    std::string listen = "127.0.0.1:0";
    bool allow_remote = false;
    std::string cert;
    std::string key;
    bool plain_http = false;
    std::size_t max_body = 16u << 20;  // bytes
    long read_timeout_ms = 5000;       // one read or write on a connection
    long request_timeout_ms = 30000;   // a whole request body
    long keep_alive_s = 2;
    int threads = 32;
};

// Serves until SIGINT or SIGTERM. Prints the service's URL on stdout once it listens. Throws
// std::runtime_error for a setup failure (bad address, certificate, database).
void serve(const Options& options);

} // namespace fs_server

#endif
