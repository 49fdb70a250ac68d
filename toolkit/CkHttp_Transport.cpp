// Sockets and TLS for the HTTP exchange.

#include "toolkit/CkHttp_Transport.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vellument/Ostrel_Log.h>

namespace ckhttp {

namespace {

// The TLS 1.3 suites, then the older ones in order of preference. Names this OpenSSL does not
// have are skipped by it (SSL 3.0, RC4, DES and 3DES are gone from current builds).
const char* const kTls13Suites = "TLS_AES_128_GCM_SHA256:TLS_CHACHA20_POLY1305_SHA256:TLS_AES_256_GCM_SHA384";
const char* const kTls12Suites =
    "ECDHE-ECDSA-AES128-GCM-SHA256:ECDHE-RSA-CHACHA20-POLY1305:ECDHE-ECDSA-CHACHA20-POLY1305:"
    "DHE-RSA-CHACHA20-POLY1305:"
    "ECDHE-RSA-AES128-SHA:DHE-RSA-AES128-SHA:AES128-SHA:ECDHE-RSA-AES256-SHA:DHE-RSA-AES256-SHA:AES256-SHA:"
    "ECDHE-RSA-AES128-SHA256:DHE-RSA-AES128-SHA256:AES128-SHA256:DHE-RSA-AES256-SHA256:AES256-SHA256:"
    "ECDHE-RSA-AES256-SHA384:"
    "ECDHE-RSA-AES128-GCM-SHA256:DHE-RSA-AES128-GCM-SHA256:AES128-GCM-SHA256:ECDHE-RSA-AES256-GCM-SHA384:"
    "DHE-RSA-AES256-GCM-SHA384:AES256-GCM-SHA384:"
    "ECDHE-ECDSA-AES128-SHA:ECDHE-ECDSA-AES128-SHA256:ECDHE-ECDSA-AES256-SHA:ECDHE-ECDSA-AES256-SHA384:"
    "ECDHE-ECDSA-AES256-GCM-SHA384:"
    "ECDHE-RSA-DES-CBC3-SHA:EDH-RSA-DES-CBC3-SHA:DES-CBC3-SHA:"
    "ECDHE-RSA-RC4-SHA:RC4-SHA:RC4-MD5:"
    "EDH-RSA-DES-CBC-SHA:DES-CBC-SHA:"
    // TLS 1.0 and 1.1 stay in the offered range only at this level.
    "@SECLEVEL=0";

typedef std::chrono::steady_clock Clock;

int remainingMs(Clock::time_point deadline)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(left > INT_MAX ? INT_MAX : left);
}

bool retryable(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

// The socket under TLS: send without SIGPIPE, so a peer that goes away is an error, not a signal.
int bioWrite(BIO* bio, const char* data, int length)
{
    BIO_clear_retry_flags(bio);
    ssize_t n = send(static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio))), data,
                     static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (n < 0 && retryable(errno))
        BIO_set_retry_write(bio);
    return static_cast<int>(n);
}

int bioRead(BIO* bio, char* data, int length)
{
    BIO_clear_retry_flags(bio);
    ssize_t n = recv(static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio))), data,
                     static_cast<std::size_t>(length), 0);
    if (n < 0 && retryable(errno))
        BIO_set_retry_read(bio);
    return static_cast<int>(n);
}

long bioCtrl(BIO*, int command, long, void*)
{
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

int bioCreate(BIO* bio)
{
    BIO_set_init(bio, 1);
    return 1;
}

BIO_METHOD* socketMethod()
{
    static BIO_METHOD* method = [] {
        BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "vellument socket");
        BIO_meth_set_write(m, bioWrite);
        BIO_meth_set_read(m, bioRead);
        BIO_meth_set_ctrl(m, bioCtrl);
        BIO_meth_set_create(m, bioCreate);
        return m;
    }();
    return method;
}

struct HelloWatch {
    bool serverHello = false;
};

void watchMessages(int writing, int, int contentType, const void* data, std::size_t length, SSL*, void* arg)
{
    if (!writing && contentType == SSL3_RT_HANDSHAKE && length > 0 &&
        static_cast<const unsigned char*>(data)[0] == SSL3_MT_SERVER_HELLO)
        static_cast<HelloWatch*>(arg)->serverHello = true;
}

// The first OpenSSL error of the thread as text, and the queue emptied.
std::string opensslError()
{
    unsigned long e = ERR_get_error();
    ERR_clear_error();
    if (e == 0)
        return std::string();
    char text[256];
    ERR_error_string_n(e, text, sizeof text);
    return text;
}

const char* versionName(int version)
{
    switch (version) {
    case TLS1_3_VERSION: return "TLS 1.3";
    case TLS1_2_VERSION: return "TLS 1.2";
    case TLS1_1_VERSION: return "TLS 1.1";
    case TLS1_VERSION: return "TLS 1.0";
    default: return "unknown";
    }
}

} // namespace

Connection::~Connection()
{
    close();
}

void Connection::close()
{
    if (ssl_ != nullptr) {
        SSL_free(ssl_);
        ssl_ = nullptr;
    }
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool Connection::waitFor(bool forWrite, int timeoutMs)
{
    pollfd p{fd_, static_cast<short>(forWrite ? POLLOUT : POLLIN), 0};
    for (;;) {
        int r = poll(&p, 1, timeoutMs);
        if (r < 0 && errno == EINTR)
            continue;
        return r > 0;
    }
}

bool Connection::connectTcp(const Url& url, int timeoutMs, Trail& trail)
{
    TrailBlock block(trail, "connectSocket");
    trail.add("hostname", url.host);
    trail.add("port", std::to_string(url.port));
    close();
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* found = nullptr;
    int gai = getaddrinfo(url.host.c_str(), std::to_string(url.port).c_str(), &hints, &found);
    if (gai != 0) {
        trail.message(std::string("Failed to resolve the host name: ") + gai_strerror(gai));
        return false;
    }
    std::string reason = "no address";
    for (addrinfo* a = found; a != nullptr; a = a->ai_next) {
        int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) {
            reason = std::strerror(errno);
            continue;
        }
        int r = connect(fd, a->ai_addr, a->ai_addrlen);
        if (r < 0 && errno == EINPROGRESS) {
            fd_ = fd;
            if (!waitFor(true, remainingMs(deadline))) {
                reason = "timed out after " + std::to_string(timeoutMs) + " milliseconds";
                close();
                break;
            }
            fd_ = -1;
            int error = 0;
            socklen_t length = sizeof error;
            getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
            r = error == 0 ? 0 : -1;
            errno = error;
        }
        if (r == 0) {
            int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            fd_ = fd;
            break;
        }
        reason = std::strerror(errno);
        ::close(fd);
    }
    freeaddrinfo(found);
    if (fd_ < 0) {
        trail.message("Failed to connect: " + reason + ".");
        return false;
    }
    trail.message("Connected.");
    return true;
}

Connection::Handshake Connection::handshake(const Url& url, const TlsPolicy& policy, int minVersion, int maxVersion,
                                            int timeoutMs, Trail& trail)
{
    TrailBlock block(trail, "clientHandshake");
    trail.add("versionRange", std::string(versionName(minVersion)) + " to " + versionName(maxVersion));
    ERR_clear_error();
    SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
    if (ctx == nullptr) {
        trail.message("Failed to create the TLS context: " + opensslError());
        return HS_AFTER_HELLO;
    }
    SSL_CTX_set_min_proto_version(ctx, minVersion);
    SSL_CTX_set_max_proto_version(ctx, maxVersion);
    SSL_CTX_set_cipher_list(ctx, kTls12Suites);
    SSL_CTX_set_ciphersuites(ctx, kTls13Suites);
    SSL_CTX_set_options(ctx, SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    if (policy.verify) {
        SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, nullptr);
        int loaded = policy.caFile.empty() ? SSL_CTX_set_default_verify_paths(ctx)
                                           : SSL_CTX_load_verify_locations(ctx, policy.caFile.c_str(), nullptr);
        if (loaded != 1)
            trail.message("Failed to load the trusted certificates " + policy.caFile + ": " + opensslError());
    } else {
        SSL_CTX_set_verify(ctx, SSL_VERIFY_NONE, nullptr);
    }
    ssl_ = SSL_new(ctx);
    SSL_CTX_free(ctx);
    if (ssl_ == nullptr) {
        trail.message("Failed to create the TLS connection: " + opensslError());
        return HS_AFTER_HELLO;
    }
    if (!isIpLiteral(url.host))
        SSL_set_tlsext_host_name(ssl_, url.host.c_str());
    if (policy.verify) {
        if (isIpLiteral(url.host))
            X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl_), url.host.c_str());
        else
            SSL_set1_host(ssl_, url.host.c_str());
    }
    BIO* bio = BIO_new(socketMethod());
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<std::intptr_t>(fd_)));
    SSL_set_bio(ssl_, bio, bio);
    HelloWatch watch;
    SSL_set_msg_callback(ssl_, watchMessages);
    SSL_set_msg_callback_arg(ssl_, &watch);

    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Handshake outcome = HS_OK;
    for (;;) {
        int r = SSL_connect(ssl_);
        if (r == 1)
            break;
        int error = SSL_get_error(ssl_, r);
        if ((error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) &&
            waitFor(error == SSL_ERROR_WANT_WRITE, remainingMs(deadline)))
            continue;
        if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
            trail.message("The TLS handshake timed out after " + std::to_string(timeoutMs) + " milliseconds.");
            outcome = HS_TCP_FAILED;
            break;
        }
        long verified = SSL_get_verify_result(ssl_);
        if (policy.verify && verified != X509_V_OK) {
            trail.message(std::string("The server certificate did not pass verification: ") +
                          X509_verify_cert_error_string(verified));
            outcome = HS_VERIFY_FAILED;
        } else {
            outcome = watch.serverHello ? HS_AFTER_HELLO : HS_NO_SERVER_HELLO;
        }
        std::string why = opensslError();
        if (!why.empty())
            trail.message(why);
        break;
    }
    SSL_set_msg_callback(ssl_, nullptr);
    if (outcome != HS_OK) {
        close();
        return outcome;
    }
    const int chosen = SSL_version(ssl_);
    if (chosen > maxVersion || chosen < minVersion) {
        trail.message(chosen > maxVersion ? "Server chose a higher version of SSL/TLS than what we want"
                      : minVersion == maxVersion ? "Server did not choose the exact version of SSL/TLS that is required."
                                                 : "Server did not choose a high enough version of SSL/TLS.");
        close();
        return HS_AFTER_HELLO;
    }
    trail.add("tlsVersion", versionName(chosen));
    trail.add("cipherSuite", SSL_get_cipher_name(ssl_));
    return HS_OK;
}

bool Connection::open(const Url& url, TlsPolicy& policy, int connectTimeoutMs, Trail& trail)
{
    TrailBlock block(trail, "openConnection");
    if (!connectTcp(url, connectTimeoutMs, trail))
        return false;
    if (!url.tls)
        return true;
    if (!policy.verify) {
        trail.message("Not verifying server certificate...");
        trail.message("Set the RequireSslCertVerify property to enable verification.");
        Ostrel::Log::LogMessage(__FILE__, __LINE__, __FUNCTION__, Ostrel::Log::LEVEL_DETAIL,
                                "[CkHttp] Not verifying server certificate...");
        Ostrel::Log::LogMessage(__FILE__, __LINE__, __FUNCTION__, Ostrel::Log::LEVEL_DETAIL,
                                "[CkHttp] Set the RequireSslCertVerify property to enable verification.");
    }
    Handshake hs = handshake(url, policy, TLS1_VERSION, policy.tls13Off ? TLS1_2_VERSION : TLS1_3_VERSION,
                             connectTimeoutMs, trail);
    if (hs == HS_NO_SERVER_HELLO && !policy.tls13Off) {
        const char* retry = "Failed to read the TLS server hello.  Retry without TLS 1.3";
        trail.message(retry);
        Ostrel::Log::LogMessage(__FILE__, __LINE__, __FUNCTION__, Ostrel::Log::LEVEL_INFO, "[CkHttp] %s", retry);
        policy.tls13Off = true;
        hs = connectTcp(url, connectTimeoutMs, trail)
                 ? handshake(url, policy, TLS1_VERSION, TLS1_2_VERSION, connectTimeoutMs, trail)
                 : HS_TCP_FAILED;
    }
    if (hs == HS_AFTER_HELLO) {
        trail.message("Retrying the handshake with exactly TLS 1.2.");
        hs = connectTcp(url, connectTimeoutMs, trail)
                 ? handshake(url, policy, TLS1_2_VERSION, TLS1_2_VERSION, connectTimeoutMs, trail)
                 : HS_TCP_FAILED;
    }
    if (hs != HS_OK) {
        trail.message("Client handshake failed. (1)");
        close();
        return false;
    }
    return true;
}

bool Connection::sendAll(const char* data, std::size_t size, int idleMs, Trail& trail)
{
    while (size > 0) {
        long n;
        bool wantWrite = true;
        if (ssl_ != nullptr) {
            ERR_clear_error();
            int r = SSL_write(ssl_, data, static_cast<int>(size > INT_MAX ? INT_MAX : size));
            n = r;
            if (r <= 0) {
                int error = SSL_get_error(ssl_, r);
                if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
                    trail.message("Failed to send on the TLS connection. " + opensslError());
                    return false;
                }
                wantWrite = error == SSL_ERROR_WANT_WRITE;
                n = 0;
            }
        } else {
            n = send(fd_, data, size, MSG_NOSIGNAL);
            if (n < 0) {
                if (!retryable(errno)) {
                    trail.message(std::string("Failed to send: ") + std::strerror(errno) + ".");
                    return false;
                }
                n = 0;
            }
        }
        data += n;
        size -= static_cast<std::size_t>(n);
        if (n == 0 && !waitFor(wantWrite, idleMs)) {
            trail.message("Failed to send: the server took no data in " + std::to_string(idleMs) + " milliseconds.");
            return false;
        }
    }
    return true;
}

long Connection::receive(char* buffer, std::size_t size, int timeoutMs)
{
    if (fd_ < 0)
        return kError;
    const int chunk = static_cast<int>(size > INT_MAX ? INT_MAX : size);
    for (;;) {
        bool wantWrite = false;
        if (ssl_ != nullptr) {
            ERR_clear_error();
            int r = SSL_read(ssl_, buffer, chunk);
            if (r > 0)
                return r;
            int error = SSL_get_error(ssl_, r);
            if (error == SSL_ERROR_ZERO_RETURN)
                return 0;
            if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
                ERR_clear_error();
                return kError;
            }
            wantWrite = error == SSL_ERROR_WANT_WRITE;
        } else {
            ssize_t r = recv(fd_, buffer, static_cast<std::size_t>(chunk), 0);
            if (r >= 0)
                return static_cast<long>(r);
            if (!retryable(errno))
                return errno == ECONNRESET ? 0 : kError;
        }
        if (!waitFor(wantWrite, timeoutMs))
            return kIdle;
    }
}

bool Connection::alive()
{
    if (fd_ < 0 || (ssl_ != nullptr && SSL_pending(ssl_) > 0))
        return false;
    pollfd p{fd_, POLLIN, 0};
    // Anything to read between requests is either a close or bytes nobody asked for.
    return poll(&p, 1, 0) == 0;
}

} // namespace ckhttp
