#ifndef VELLUMENT_TESTS_HTTP_SCRIPT_SERVER_H
#define VELLUMENT_TESTS_HTTP_SCRIPT_SERVER_H

// A scripted HTTP/HTTPS server for tests: it listens on 127.0.0.1 on a free port, in a thread of
// its own, and answers each request it receives with the next reply of its script, byte for
// byte. It records the bytes of every request, so a test can compare them exactly.
//
//   httptest::ScriptServer server({"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"});
//   CkHttp http;
//   CkHttpResponse* r = http.PostXml(server.url("/svc.asmx").c_str(), "<a/>", "utf-8");
//   EXPECT_EQ(server.requests().at(0).bytes, "POST /svc.asmx HTTP/1.1\r\n...");
//
// A reply is sent as it stands, except for two markers inside it:
//   "<<close>>"      close the connection at this point (the rest of the reply is dropped)
//   "<<silent:N>>"   send nothing for N milliseconds, then go on
//   "<<port>>"       the server's own port, for a Location that points back at it
// After a reply the connection stays open: a further request on it takes the next reply, a new
// connection moves the server on to that one, and the client's close ends it. A request for
// which the script has no reply left is recorded and its connection closed.
//
// A request is read up to the empty line after its head and then as many bytes as its
// Content-Length says, before the reply starts; a client that sends nothing is given up after
// a few seconds. TLS options (ServerOptions): a self-signed certificate made at run time for
// certName, TLS 1.2 at most, breaking off at a ClientHello that offers TLS 1.3, or closing every
// connection before the handshake. hellos() tells what each ClientHello carried.
//
// Everything is bounded in time; the destructor stops the thread and closes every socket.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace httptest {

struct ServerOptions {
    bool tls = false;
    bool tls12Only = false;         // the server speaks at most TLS 1.2
    bool refuseTls13Hello = false;  // a ClientHello that offers TLS 1.3 is answered by an alert
    bool abortHandshake = false;    // every connection is closed when its first bytes arrive
    bool breakAfterHelloOnce = false;  // TLS 1.2 only; the first handshake is cut off after the
                                       // client's key exchange, before the server's Finished
    std::string certName = "localhost";  // DNS name or IP literal of the certificate
    bool repeatLast = false;        // the last reply serves every further request (benchmarks)
    bool record = true;             // keep the bytes of the requests
};

struct Request {
    int connection = 0;  // 1 for the first connection accepted
    std::string bytes;   // head and body as received
};

struct TlsHello {
    std::string serverName;              // SNI, empty when none was sent
    std::vector<std::uint16_t> ciphers;  // cipher suite numbers in the order offered
    std::vector<std::uint16_t> versions; // supported_versions in the order offered
    std::string negotiated;              // "TLSv1.3", "TLSv1.2", ... or empty when it failed
};

// A self-signed certificate and its key for a name, made once per process.
struct TestCertificate {
    std::string certPem;
    std::string keyPem;

    static const TestCertificate& forName(const std::string& name)
    {
        static std::mutex lock;
        static std::map<std::string, TestCertificate> made;
        std::lock_guard<std::mutex> guard(lock);
        auto it = made.find(name);
        if (it != made.end())
            return it->second;
        EVP_PKEY* key = EVP_EC_gen("P-256");
        X509* cert = X509_new();
        X509_set_version(cert, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(cert), static_cast<long>(made.size() + 1));
        X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
        X509_gmtime_adj(X509_getm_notAfter(cert), 3600L * 24 * 30);
        X509_NAME* subject = X509_get_subject_name(cert);
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name.c_str()), -1,
                                   -1, 0);
        X509_set_issuer_name(cert, subject);
        X509_set_pubkey(cert, key);
        const bool ip = name.find_first_not_of("0123456789.:") == std::string::npos;
        std::string san = (ip ? "IP:" : "DNS:") + name;
        X509V3_CTX ctx;
        X509V3_set_ctx_nodb(&ctx);
        X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
        X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, NID_subject_alt_name, san.c_str());
        X509_add_ext(cert, ext, -1);
        X509_EXTENSION_free(ext);
        X509_sign(cert, key, EVP_sha256());
        TestCertificate out;
        BIO* bio = BIO_new(BIO_s_mem());
        PEM_write_bio_X509(bio, cert);
        char* data = nullptr;
        long n = BIO_get_mem_data(bio, &data);
        out.certPem.assign(data, static_cast<std::size_t>(n));
        BIO_free(bio);
        bio = BIO_new(BIO_s_mem());
        PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
        n = BIO_get_mem_data(bio, &data);
        out.keyPem.assign(data, static_cast<std::size_t>(n));
        BIO_free(bio);
        X509_free(cert);
        EVP_PKEY_free(key);
        return made[name] = out;
    }
};

class ScriptServer {
public:
    explicit ScriptServer(std::vector<std::string> replies, ServerOptions options = ServerOptions())
        : replies_(std::move(replies)), options_(std::move(options))
    {
        listen_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in addr;
        std::memset(&addr, 0, sizeof addr);
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof addr;
        if (listen_ < 0 || bind(listen_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
            ::listen(listen_, 16) != 0 || getsockname(listen_, reinterpret_cast<sockaddr*>(&addr), &length) != 0)
            throw std::runtime_error("scripted server: cannot listen on 127.0.0.1");
        port_ = ntohs(addr.sin_port);
        if (options_.tls)
            makeContext();
        thread_ = std::thread([this] { run(); });
    }

    ~ScriptServer()
    {
        stop_ = true;
        thread_.join();
        ::close(listen_);
        if (ctx_ != nullptr)
            SSL_CTX_free(ctx_);
    }

    ScriptServer(const ScriptServer&) = delete;
    ScriptServer& operator=(const ScriptServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path = "/") const
    {
        return std::string(options_.tls ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_) + path;
    }
    std::vector<Request> requests() const
    {
        std::lock_guard<std::mutex> guard(lock_);
        return requests_;
    }
    std::vector<TlsHello> hellos() const
    {
        std::lock_guard<std::mutex> guard(lock_);
        return hellos_;
    }
    int connections() const { return connections_; }

private:
    typedef std::chrono::steady_clock Clock;
    // How long the server waits for a request that doesn't come, or for a write to get through.
    static constexpr int kGiveUpMs = 5000;
    static constexpr int kPollMs = 20;

    struct Conn {
        int fd = -1;
        SSL* ssl = nullptr;
    };

    void makeContext()
    {
        const TestCertificate& cert = TestCertificate::forName(options_.certName);
        ctx_ = SSL_CTX_new(TLS_server_method());
        BIO* bio = BIO_new_mem_buf(cert.certPem.data(), static_cast<int>(cert.certPem.size()));
        X509* x = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
        BIO_free(bio);
        bio = BIO_new_mem_buf(cert.keyPem.data(), static_cast<int>(cert.keyPem.size()));
        EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
        BIO_free(bio);
        SSL_CTX_use_certificate(ctx_, x);
        SSL_CTX_use_PrivateKey(ctx_, key);
        X509_free(x);
        EVP_PKEY_free(key);
        SSL_CTX_set_security_level(ctx_, 0);
        SSL_CTX_set_min_proto_version(ctx_, TLS1_VERSION);
        if (options_.tls12Only || options_.breakAfterHelloOnce)
            SSL_CTX_set_max_proto_version(ctx_, TLS1_2_VERSION);
        SSL_CTX_set_client_hello_cb(ctx_, &ScriptServer::onHello, this);
    }

    static int onHello(SSL* ssl, int* alert, void* arg)
    {
        ScriptServer* self = static_cast<ScriptServer*>(arg);
        TlsHello hello;
        const unsigned char* p = nullptr;
        std::size_t n = SSL_client_hello_get0_ciphers(ssl, &p);
        for (std::size_t i = 0; i + 1 < n; i += 2)
            hello.ciphers.push_back(static_cast<std::uint16_t>((p[i] << 8) | p[i + 1]));
        if (SSL_client_hello_get0_ext(ssl, TLSEXT_TYPE_supported_versions, &p, &n) && n >= 1)
            for (std::size_t i = 1; i + 1 < n && i < 1u + p[0]; i += 2)
                hello.versions.push_back(static_cast<std::uint16_t>((p[i] << 8) | p[i + 1]));
        // server_name: list length (2), type (1), name length (2), name.
        if (SSL_client_hello_get0_ext(ssl, TLSEXT_TYPE_server_name, &p, &n) && n >= 5) {
            std::size_t len = static_cast<std::size_t>((p[3] << 8) | p[4]);
            if (5 + len <= n)
                hello.serverName.assign(reinterpret_cast<const char*>(p + 5), len);
        }
        bool offers13 = false;
        for (std::uint16_t v : hello.versions)
            offers13 = offers13 || v == 0x0304;
        {
            std::lock_guard<std::mutex> guard(self->lock_);
            self->hellos_.push_back(hello);
        }
        if (self->options_.refuseTls13Hello && offers13) {
            *alert = SSL_AD_PROTOCOL_VERSION;
            return SSL_CLIENT_HELLO_ERROR;
        }
        return SSL_CLIENT_HELLO_SUCCESS;
    }

    static void onMessage(int writing, int, int contentType, const void* data, std::size_t length, SSL* ssl, void*)
    {
        if (!writing && contentType == SSL3_RT_HANDSHAKE && length > 0 &&
            static_cast<const unsigned char*>(data)[0] == SSL3_MT_CLIENT_KEY_EXCHANGE)
            shutdown(SSL_get_fd(ssl), SHUT_RDWR);
    }

    // Waits until fd is readable: 1, the listener has a new connection: 2, stop or time out: 0.
    int waitReadable(const Conn& c, int limitMs)
    {
        const Clock::time_point end = Clock::now() + std::chrono::milliseconds(limitMs);
        while (!stop_ && Clock::now() < end) {
            if (c.ssl != nullptr && SSL_pending(c.ssl) > 0)
                return 1;
            pollfd p[2] = {{c.fd, POLLIN, 0}, {listen_, POLLIN, 0}};
            int r = poll(p, 2, kPollMs);
            if (r > 0 && p[0].revents != 0)
                return 1;
            if (r > 0 && p[1].revents != 0)
                return 2;
        }
        return 0;
    }

    long readSome(const Conn& c, char* buffer, std::size_t size)
    {
        if (c.ssl != nullptr) {
            int r = SSL_read(c.ssl, buffer, static_cast<int>(size));
            return r > 0 ? r : -1;
        }
        return recv(c.fd, buffer, size, 0);
    }

    bool writeAll(const Conn& c, const char* data, std::size_t size)
    {
        while (size > 0 && !stop_) {
            long n = c.ssl != nullptr ? SSL_write(c.ssl, data, static_cast<int>(size))
                                      : send(c.fd, data, size, MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            data += n;
            size -= static_cast<std::size_t>(n);
        }
        return size == 0;
    }

    // One request: the head, then its Content-Length. False when none came.
    bool readRequest(const Conn& c, std::string& out)
    {
        out.clear();
        std::size_t need = std::string::npos;
        char buffer[65536];
        while (out.size() < need) {
            if (waitReadable(c, kGiveUpMs) != 1)
                return false;
            long n = readSome(c, buffer, sizeof buffer);
            if (n <= 0)
                return false;
            out.append(buffer, static_cast<std::size_t>(n));
            std::size_t end = out.find("\r\n\r\n");
            if (need == std::string::npos && end != std::string::npos) {
                need = end + 4;
                std::string head = out.substr(0, end);
                for (char& ch : head)
                    ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
                std::size_t cl = head.find("\r\ncontent-length:");
                if (cl != std::string::npos)
                    need += std::strtoull(head.c_str() + cl + 17, nullptr, 10);
            }
        }
        return true;
    }

    // Plays a reply; false when it closed the connection.
    bool play(const Conn& c, std::string reply)
    {
        for (std::size_t p; (p = reply.find("<<port>>")) != std::string::npos;)
            reply.replace(p, 8, std::to_string(port_));
        std::size_t pos = 0;
        while (pos < reply.size()) {
            std::size_t mark = reply.find("<<", pos);
            while (mark != std::string::npos && reply.compare(mark, 9, "<<close>>") != 0 &&
                   reply.compare(mark, 9, "<<silent:") != 0)
                mark = reply.find("<<", mark + 2);
            const std::size_t stop = mark == std::string::npos ? reply.size() : mark;
            if (!writeAll(c, reply.data() + pos, stop - pos))
                return false;
            if (mark == std::string::npos)
                break;
            if (reply.compare(mark, 9, "<<close>>") == 0)
                return false;
            const std::size_t end = reply.find(">>", mark);
            const int ms = std::atoi(reply.c_str() + mark + 9);
            const Clock::time_point until = Clock::now() + std::chrono::milliseconds(ms);
            while (!stop_ && Clock::now() < until)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            pos = end + 2;
        }
        return true;
    }

    void closeConn(Conn& c)
    {
        if (c.ssl != nullptr) {
            SSL_shutdown(c.ssl);
            SSL_free(c.ssl);
        }
        if (c.fd >= 0)
            ::close(c.fd);
        c = Conn();
    }

    void serve(Conn& c, int number)
    {
        std::string request;
        while (!stop_ && readRequest(c, request)) {
            if (options_.record) {
                std::lock_guard<std::mutex> guard(lock_);
                requests_.push_back(Request{number, request});
            }
            if (next_ >= replies_.size() && !(options_.repeatLast && !replies_.empty()))
                return;
            const std::string& reply = replies_[next_ < replies_.size() ? next_ : replies_.size() - 1];
            ++next_;
            if (!play(c, reply))
                return;
            // Another request on this connection, or a new connection, or the client's close.
            if (waitReadable(c, 30000) != 1)
                return;
        }
    }

    void run()
    {
        // A client that goes away mid-reply must not take the process with it. Blocked in this
        // thread only, so that the client under test still meets the signal if it lets one through.
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        while (!stop_) {
            pollfd p{listen_, POLLIN, 0};
            if (poll(&p, 1, kPollMs) <= 0)
                continue;
            Conn c;
            c.fd = accept4(listen_, nullptr, nullptr, SOCK_CLOEXEC);
            if (c.fd < 0)
                continue;
            const int number = ++connections_;
            timeval limit{kGiveUpMs / 1000, 0};
            setsockopt(c.fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
            setsockopt(c.fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
            int on = 1;
            setsockopt(c.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            if (options_.tls && options_.abortHandshake) {
                char byte;
                if (waitReadable(c, kGiveUpMs) == 1)
                    recv(c.fd, &byte, 1, 0);
                closeConn(c);
                continue;
            }
            if (options_.tls) {
                c.ssl = SSL_new(ctx_);
                SSL_set_fd(c.ssl, c.fd);
                if (options_.breakAfterHelloOnce && number == 1)
                    SSL_set_msg_callback(c.ssl, &ScriptServer::onMessage);
                if (SSL_accept(c.ssl) != 1) {
                    ERR_clear_error();
                    closeConn(c);
                    continue;
                }
                std::lock_guard<std::mutex> guard(lock_);
                if (!hellos_.empty())
                    hellos_.back().negotiated = SSL_get_version(c.ssl);
            }
            serve(c, number);
            closeConn(c);
        }
    }

    std::vector<std::string> replies_;
    ServerOptions options_;
    int listen_ = -1;
    int port_ = 0;
    SSL_CTX* ctx_ = nullptr;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<int> connections_{0};
    std::size_t next_ = 0;
    mutable std::mutex lock_;
    std::vector<Request> requests_;
    std::vector<TlsHello> hellos_;
};

} // namespace httptest

#endif
