#include "server.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <cstdio>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include <httplib.h>
#include <openssl/ssl.h>
#include <zlib.h>

#include "certificate.h"
#include "operations.h"
#include "soap.h"
#include "store.h"
#include "text.h"

namespace fs_server {

namespace {

const char kPath[] = "/supportservices.asmx";
const char kAccessKey[] = "QXTR4-LMZ82-HBVNC-WPJK6-3DGAF";

// Set when the server stops, so that an injected delay ends at once.
std::mutex g_stop_mutex;
std::condition_variable g_stop_signal;
bool g_stopping = false;

void wait_ms(long ms)
{
    std::unique_lock<std::mutex> lock(g_stop_mutex);
    g_stop_signal.wait_for(lock, std::chrono::milliseconds(ms), [] { return g_stopping; });
}

std::mutex g_log_mutex;

// A field of the log line as it came from the client: one line, of a sensible length.
std::string loggable(const std::string& text, std::size_t limit = 64)
{
    std::string out = text.substr(0, limit);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return text.size() > limit ? out + "..." : out;
}

void log_request(const std::string& operation, const fs_soap::Request& request, const std::string& outcome)
{
    const std::string line = fs_text::utc_now() + " " + (operation.empty() ? "-" : operation) + " ein=" +
                             loggable(request.get("ein")) + " form=" + loggable(request.get("formName")) +
                             " year=" + loggable(request.get("year")) + " " + loggable(outcome, 200) + "\n";
    std::lock_guard<std::mutex> lock(g_log_mutex);
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

// Each worker thread keeps its own connection to the database.
std::string g_data_directory;

fs_store::Store& thread_store()
{
    thread_local std::unique_ptr<fs_store::Store> store;
    if (!store)
        store = std::make_unique<fs_store::Store>(g_data_directory);
    return *store;
}

// The socket of the request's connection: from the TLS session, or for plain HTTP the one whose
// two ends are those of the request.
int connection_socket(const httplib::Request& req)
{
    if (req.ssl)
        return SSL_get_fd(req.ssl);
    DIR* fds = opendir("/proc/self/fd");
    if (!fds)
        return -1;
    int found = -1;
    while (dirent* entry = readdir(fds)) {
        const int fd = std::atoi(entry->d_name);
        if (fd <= 2 || fd == dirfd(fds))
            continue;
        sockaddr_storage local{}, peer{};
        socklen_t local_size = sizeof local, peer_size = sizeof peer;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &local_size) != 0 ||
            getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peer_size) != 0)
            continue;
        const auto port_of = [](const sockaddr_storage& a) {
            return a.ss_family == AF_INET6 ? ntohs(reinterpret_cast<const sockaddr_in6&>(a).sin6_port)
                                           : ntohs(reinterpret_cast<const sockaddr_in&>(a).sin_port);
        };
        if (port_of(peer) == req.remote_port && port_of(local) == req.local_port) {
            found = fd;
            break;
        }
    }
    closedir(fds);
    return found;
}

std::string gzip(const std::string& data)
{
    z_stream z{};
    if (deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error("zlib");
    std::string out(deflateBound(&z, static_cast<uLong>(data.size())) + 32, '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = static_cast<uInt>(data.size());
    z.next_out = reinterpret_cast<Bytef*>(&out[0]);
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// Puts the reply on the wire. The body goes out through a content provider, byte for byte: the
// HTTP layer would otherwise compress text replies for clients that accept gzip, and only the
// gzip fault should.
void send(const httplib::Request& req, httplib::Response& res, const fs_ops::Reply& reply)
{
    if (reply.delay_ms > 0)
        wait_ms(reply.delay_ms);
    if (reply.close) {
        const int fd = connection_socket(req);
        if (fd >= 0)
            ::shutdown(fd, SHUT_RDWR);
        res.status = 500;  // never reaches the client
        return;
    }
    res.status = reply.status;
    auto body = std::make_shared<std::string>(reply.gzip ? gzip(reply.body) : reply.body);
    if (reply.gzip)
        res.set_header("Content-Encoding", "gzip");
    if (reply.chunked) {
        // The HTTP layer compresses chunked text replies for a client that accepts gzip; this
        // fault is about the chunking alone. The request object is the server's own, not const.
        const_cast<httplib::Request&>(req).headers.erase("Accept-Encoding");
        res.set_chunked_content_provider(reply.content_type, [body](size_t offset, httplib::DataSink& sink) {
            // Small chunks, so that the reader really has to join several.
            const size_t size = std::min<size_t>(1000, body->size() - offset);
            if (size > 0)
                sink.write(body->data() + offset, size);
            if (offset + size >= body->size())
                sink.done();
            return true;
        });
        return;
    }
    if (body->empty()) {
        res.set_content("", reply.content_type);
        return;
    }
    res.set_content_provider(body->size(), reply.content_type,
                             [body](size_t offset, size_t length, httplib::DataSink& sink) {
                                 sink.write(body->data() + offset, std::min(length, body->size() - offset));
                                 return true;
                             });
}

std::string unquote(std::string text)
{
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
        text = text.substr(1, text.size() - 2);
    return text;
}

fs_ops::Reply handle(const std::string& body, const httplib::Request& req, fs_soap::Request& request)
{
    std::string problem;
    if (!fs_soap::parse_request(body, request, problem))
        return fs_ops::fault_reply(problem);
    const std::string expected = std::string(fs_soap::kNamespace) + request.operation;
    if (unquote(req.get_header_value("SOAPAction")) != expected)
        return fs_ops::fault_reply("The SOAPAction header does not name the operation " + request.operation);
    if (request.get("accessKey") != kAccessKey)
        return fs_ops::fault_reply("Invalid access key");
    fs_store::Store& store = thread_store();
    fs_store::Fault fault;
    if (store.take_fault(request.operation, fault))
        return fs_ops::apply_fault(store, request, fault);
    return fs_ops::perform(store, request);
}

void handle_post(const Options& options, const httplib::Request& req, httplib::Response& res,
                 const httplib::ContentReader& reader)
{
    fs_soap::Request request;
    const auto started = std::chrono::steady_clock::now();
    std::string body;
    bool too_large = false, too_slow = false;
    const bool read = reader([&](const char* data, size_t length) {
        if (body.size() + length > options.max_body) {
            too_large = true;
            return false;
        }
        if (std::chrono::steady_clock::now() - started > std::chrono::milliseconds(options.request_timeout_ms)) {
            too_slow = true;
            return false;
        }
        body.append(data, length);
        return true;
    });
    fs_ops::Reply reply;
    if (!read || too_large || too_slow) {
        // The rest of the body is not read, so the connection can't carry another request.
        res.set_header("Connection", "close");
        reply = fs_ops::fault_reply(too_slow ? "The request took too long to arrive"
                                             : "The request is too large or was cut off");
        reply.status = too_slow ? 408 : 413;
    } else {
        try {
            reply = handle(body, req, request);
        } catch (const std::exception& e) {
            reply = fs_ops::fault_reply(std::string("System error: ") + e.what());
        }
    }
    log_request(request.operation, request, reply.outcome);
    send(req, res, reply);
}

// The HTTP layer listens with a queue of 5: a burst of clients connecting at once would see their
// connections dropped and retried a second later. Listening again on the bound socket lengthens it.
template <typename Base>
class Listener : public Base {
public:
    using Base::Base;
    void lengthen_queue() { ::listen(this->svr_sock_, SOMAXCONN); }
};

struct Address {
    std::string host;
    int port = 0;
};

Address parse_listen(const std::string& text)
{
    Address a;
    std::string port;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos || close + 1 >= text.size() || text[close + 1] != ':')
            throw std::runtime_error("--listen: expected [ADDRESS]:PORT, got \"" + text + "\"");
        a.host = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else {
        const size_t colon = text.rfind(':');
        if (colon == std::string::npos)
            throw std::runtime_error("--listen: expected ADDRESS:PORT, got \"" + text + "\"");
        a.host = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    char* end = nullptr;
    const long value = std::strtol(port.c_str(), &end, 10);
    if (a.host.empty() || port.empty() || *end != '\0' || value < 0 || value > 65535)
        throw std::runtime_error("--listen: bad address or port in \"" + text + "\"");
    a.port = static_cast<int>(value);
    return a;
}

bool is_loopback(const std::string& host)
{
    if (host == "localhost" || host == "::1")
        return true;
    in_addr v4{};
    return inet_pton(AF_INET, host.c_str(), &v4) == 1 && (ntohl(v4.s_addr) >> 24) == 127;
}

} // namespace

void serve(const Options& options)
{
    const Address address = parse_listen(options.listen);
    if (!is_loopback(address.host) && !options.allow_remote)
        throw std::runtime_error("--listen " + options.listen +
                                 ": not a loopback address; add --allow-remote to listen on it");
    g_data_directory = options.data;
    // Creates the database before the first request, so that a bad directory fails here.
    { fs_store::Store check(options.data); }

    std::unique_ptr<httplib::Server> server;
    std::function<void()> lengthen_queue;
    if (options.plain_http) {
        auto plain = std::make_unique<Listener<httplib::Server>>();
        lengthen_queue = [p = plain.get()] { p->lengthen_queue(); };
        server = std::move(plain);
    } else {
        std::string cert = options.cert, key = options.key;
        if (cert.empty() != key.empty())
            throw std::runtime_error("--cert and --key go together");
        if (cert.empty())
            fs_cert::ensure_self_signed(options.data, cert, key);
        auto tls = std::make_unique<Listener<httplib::SSLServer>>(cert.c_str(), key.c_str());
        lengthen_queue = [p = tls.get()] { p->lengthen_queue(); };
        server = std::move(tls);
        if (!server->is_valid())
            throw std::runtime_error("cannot use the certificate " + cert + " with the key " + key);
    }

    const int threads = options.threads > 0 ? options.threads : 1;
    server->new_task_queue = [threads] { return new httplib::ThreadPool(static_cast<size_t>(threads)); };
    server->set_payload_max_length(options.max_body);
    server->set_read_timeout(options.read_timeout_ms / 1000, (options.read_timeout_ms % 1000) * 1000);
    server->set_write_timeout(options.read_timeout_ms / 1000, (options.read_timeout_ms % 1000) * 1000);
    server->set_keep_alive_timeout(options.keep_alive_s);
    // Small replies go out at once instead of waiting on the client's delayed acknowledgement.
    server->set_tcp_nodelay(true);
    server->Post(kPath, [&options](const httplib::Request& req, httplib::Response& res,
                                   const httplib::ContentReader& reader) { handle_post(options, req, res, reader); });

    // SIGINT and SIGTERM are taken by one thread that stops the server; the others never see them.
    // A dropped connection must not kill the process either.
    signal(SIGPIPE, SIG_IGN);
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    int port = address.port;
    const bool bound = port == 0 ? (port = server->bind_to_any_port(address.host)) > 0
                                 : server->bind_to_port(address.host, port);
    if (!bound)
        throw std::runtime_error("cannot listen on " + options.listen);
    lengthen_queue();

    // A stop before the server runs would be lost (the HTTP layer ignores it then), so the stopper
    // waits for the listening loop to run before it stops it.
    std::atomic<bool> listening_done{false};
    std::thread stopper([&server, &listening_done, stop_signals] {
        int signal_number = 0;
        sigwait(&stop_signals, &signal_number);
        {
            std::lock_guard<std::mutex> lock(g_stop_mutex);
            g_stopping = true;
        }
        g_stop_signal.notify_all();
        while (!listening_done) {
            if (server->is_running()) {
                server->stop();
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });

    const bool v6 = address.host.find(':') != std::string::npos;
    std::printf("%s://%s%s%s:%d%s\n", options.plain_http ? "http" : "https", v6 ? "[" : "", address.host.c_str(),
                v6 ? "]" : "", port, kPath);
    std::fflush(stdout);

    server->listen_after_bind();
    listening_done = true;
    // Wakes the stopper when the server stopped for a reason of its own; after a stop signal the
    // extra signal stays pending, blocked, and goes with the process.
    pthread_kill(stopper.native_handle(), SIGUSR1);
    stopper.join();
}

} // namespace fs_server
