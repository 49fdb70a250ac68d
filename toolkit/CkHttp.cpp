// The HTTP client object: its settings, PostXml with redirects, and the connection pool.

#include <vellument/CkHttp.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include <vellument/CkHttpResponse.h>
#include <vellument/Ostrel_Format.h>

#include "toolkit/CkHttpResponse_Impl.h"
#include "toolkit/CkHttp_Internal.h"
#include "toolkit/CkHttp_Transport.h"

using ckhttp::Connection;
using ckhttp::Header;
using ckhttp::HeaderList;
using ckhttp::ReadOutcome;
using ckhttp::Reply;
using ckhttp::Trail;
using ckhttp::TrailBlock;
using ckhttp::Url;

namespace {

const int kDefaultConnectTimeoutMs = 30000;
const int kDefaultReadTimeoutMs = 60000;
// One call sends at most this many requests, redirects included.
const int kMaxRequests = 10;
// How long a reply is waited for once sending has failed.
const int kAfterSendFailureMs = 1000;

std::string fromAnsi(const char* text)
{
    return text ? Ostrel::Format::AnsiToUtf8(text, std::strlen(text)) : std::string();
}

bool isRedirect(int status)
{
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// The request body: the ANSI text in the given charset. ASCII text goes out as it stands.
struct Body {
    const char* data = nullptr;
    std::size_t size = 0;
    std::string converted;
};

// UTF-8 to any charset the C library knows; characters the charset lacks become "?".
bool fromUtf8(const std::string& utf8, const std::string& charset, std::string& out)
{
    iconv_t cd = iconv_open((charset + "//TRANSLIT").c_str(), "UTF-8");
    if (cd == reinterpret_cast<iconv_t>(-1))
        return false;
    out.assign(utf8.size() * 2 + 16, '\0');
    char* in = const_cast<char*>(utf8.data());
    std::size_t inLeft = utf8.size();
    std::size_t written = 0;
    bool ok = true;
    for (;;) {
        char* to = &out[written];
        std::size_t toLeft = out.size() - written;
        const std::size_t r = iconv(cd, &in, &inLeft, &to, &toLeft);
        const int error = errno;
        written = out.size() - toLeft;
        if (r != static_cast<std::size_t>(-1))
            break;
        if (error != E2BIG) {
            ok = false;
            break;
        }
        out.resize(out.size() * 2);
    }
    iconv_close(cd);
    out.resize(written);
    return ok;
}

void makeBody(const char* xml, std::size_t size, bool ascii, const char* charset, Body& body, Trail& trail)
{
    body.size = xml ? size : 0;
    body.data = xml ? xml : "";
    std::string cs = Ostrel::Format::ToLowerAscii(charset ? charset : "");
    // No byte order mark goes out, so the plain names mean little endian without one.
    if (cs == "utf-16" || cs == "unicode")
        cs = "utf-16le";
    const bool asciiBased = cs.empty() || cs == "utf-8" || cs == "utf8" || cs == "windows-1252" || cs == "cp1252" ||
                            cs == "ansi" || cs == "us-ascii" || cs == "iso-8859-1";
    if (asciiBased && (ascii || Ostrel::Format::IsAscii(body.data, body.size)))
        return;
    if (cs == "windows-1252" || cs == "cp1252" || cs == "ansi")
        return;
    body.converted = Ostrel::Format::AnsiToUtf8(body.data, body.size);
    if (!cs.empty() && cs != "utf-8" && cs != "utf8") {
        std::string out;
        if (fromUtf8(body.converted, cs, out))
            body.converted.swap(out);
        else
            trail.message("Unable to convert the body to " + cs + "; it goes out as utf-8.");
    }
    body.data = body.converted.data();
    body.size = body.converted.size();
}

std::string poolKey(const Url& url)
{
    return (url.tls ? "tls:" : "tcp:") + url.host + ":" + std::to_string(url.port);
}

} // namespace

struct CkHttp::Impl {
    std::mutex lock;
    HeaderList headers{Header{"Accept", "*/*"}};
    int connectTimeoutMs = kDefaultConnectTimeoutMs;
    int readTimeoutMs = kDefaultReadTimeoutMs;
    bool followRedirects = true;
    bool allowGzip = true;
    unsigned long maxResponseSize = 0;
    ckhttp::TlsPolicy tls;
    bool lastSucceeded = false;
    Trail trail;
    std::string lastErrorOut;
    std::map<std::string, std::unique_ptr<Connection>> pool;

    int connectLimit() const { return connectTimeoutMs > 0 ? connectTimeoutMs : kDefaultConnectTimeoutMs; }
    int idleLimit() const { return readTimeoutMs > 0 ? readTimeoutMs : kDefaultReadTimeoutMs; }

    ReadOutcome exchange(const Url& url, const char* verb, const HeaderList& list, const Body* body, bool mayReuse,
                         Reply& reply);
    ReadOutcome exchangeOn(Connection& connection, const Url& url, const char* verb, const HeaderList& list,
                           const Body* body, Reply& reply, bool& sendFailed);
    CkHttpResponse* post(const std::string& urlText, const Body& body);
    CkHttpResponse* fail(const char* message);
};

// Sends one request on a connection and reads its reply.
ReadOutcome CkHttp::Impl::exchangeOn(Connection& connection, const Url& url, const char* verb, const HeaderList& list,
                                     const Body* body, Reply& reply, bool& sendFailed)
{
    const std::string head = ckhttp::buildRequestHead(verb, url, list, body ? static_cast<long long>(body->size) : -1,
                                                      allowGzip, "text/xml");
    {
        TrailBlock block(trail, "sendRequest");
        trail.add("requestLine", head.substr(0, head.find('\r')));
        sendFailed = !connection.sendAll(head.data(), head.size(), idleLimit(), trail) ||
                     (body != nullptr && !connection.sendAll(body->data, body->size, idleLimit(), trail));
    }
    // After a failed send only a reply already on its way is of interest.
    ckhttp::ReplyReader reader(connection, trail, sendFailed ? std::min(idleLimit(), kAfterSendFailureMs) : idleLimit(),
                               maxResponseSize);
    if (sendFailed)
        trail.message("Reading what the server sent before the failure.");
    return reader.read(reply);
}

ReadOutcome CkHttp::Impl::exchange(const Url& url, const char* verb, const HeaderList& list, const Body* body,
                                   bool mayReuse, Reply& reply)
{
    TrailBlock block(trail, "fullRequest");
    const std::string key = poolKey(url);
    std::unique_ptr<Connection> connection;
    auto pooled = pool.find(key);
    if (pooled != pool.end()) {
        if (mayReuse && pooled->second->alive())
            connection = std::move(pooled->second);
        pool.erase(pooled);
    }
    const bool reused = connection != nullptr;
    bool sendFailed = false;
    ReadOutcome outcome = ckhttp::READ_NO_REPLY;
    if (reused) {
        trail.message("Using a connection from the pool.");
        outcome = exchangeOn(*connection, url, verb, list, body, reply, sendFailed);
        if (outcome == ckhttp::READ_NO_REPLY) {
            // A kept connection that the server dropped meanwhile: once more on a new one.
            trail.message("The pooled connection failed; repeating on a new connection.");
            reply = Reply();
            connection.reset();
        }
    }
    if (!connection) {
        connection.reset(new Connection);
        if (!connection->open(url, tls, connectLimit(), trail))
            return ckhttp::READ_NO_REPLY;
        outcome = exchangeOn(*connection, url, verb, list, body, reply, sendFailed);
    }
    if (outcome == ckhttp::READ_OK && reply.reusable && !sendFailed)
        pool[key] = std::move(connection);
    return outcome;
}

CkHttpResponse* CkHttp::Impl::fail(const char* message)
{
    if (message != nullptr)
        trail.message(message);
    trail.finish(false);
    lastSucceeded = false;
    return nullptr;
}

CkHttpResponse* CkHttp::Impl::post(const std::string& urlText, const Body& body)
{
    Url url;
    std::string error;
    if (!ckhttp::parseUrl(urlText, url, error))
        return fail(error.c_str());
    HeaderList list = headers;
    const char* verb = "POST";
    const Body* sent = &body;
    Reply reply;
    for (int request = 1;; ++request) {
        trail.add("url", url.text);
        reply = Reply();
        ReadOutcome outcome = exchange(url, verb, list, sent, request == 1, reply);
        if (outcome == ckhttp::READ_NO_REPLY || outcome == ckhttp::READ_TOO_LARGE || outcome == ckhttp::READ_NO_MEMORY)
            return fail(nullptr);
        if (outcome == ckhttp::READ_BODY_FAILED)
            trail.message("The body is incomplete; the reply is returned with what arrived.");
        if (allowGzip && ckhttp::wantsGunzip(reply)) {
            const std::uint64_t limit = maxResponseSize ? maxResponseSize : ckhttp::kHardBodyLimit;
            ckhttp::GunzipOutcome unpacked = ckhttp::gunzipBody(reply.body, limit);
            if (unpacked == ckhttp::GUNZIP_TOO_LARGE)
                return fail(ckhttp::tooLargeText(limit, maxResponseSize != 0).c_str());
            if (unpacked != ckhttp::GUNZIP_OK) {
                trail.message("Failed to ungzip response data.");
                return fail("Failed to ungzip response body.");
            }
            trail.add("ungzippedSize", std::to_string(reply.body.size()));
        }
        if (reply.status == 407)
            return fail("Proxy authentication failed or not satisfied.");
        if (!isRedirect(reply.status) || !followRedirects || request == kMaxRequests)
            break;

        TrailBlock block(trail, "redirect");
        const Header* location = ckhttp::findHeader(reply.fields, "Location");
        if (location == nullptr || location->value.empty())
            return fail("Failed to get redirect location.");
        trail.add("location", location->value);
        Url next;
        if (!ckhttp::parseUrl(ckhttp::resolveLocation(url, location->value), next, error))
            return fail("Invalid redirect URL.");
        if (reply.status == 302) {
            verb = "GET";
            sent = nullptr;
        }
        if (!ckhttp::equalsNoCase(next.host, url.host.c_str())) {
            for (auto it = list.begin(); it != list.end();)
                it = ckhttp::equalsNoCase(it->name, "Authorization") ? list.erase(it) : it + 1;
        }
        url = next;
    }
    CkHttpResponse* response = new CkHttpResponse;
    response->impl()->reply = std::move(reply);
    response->impl()->finalUrl = url.text;
    trail.finish(true);
    lastSucceeded = true;
    return response;
}

CkHttp::CkHttp() : m_impl(new Impl)
{
    const char* verify = std::getenv("VELLUMENT_TLS_VERIFY");
    m_impl->tls.verify = verify != nullptr && std::strcmp(verify, "1") == 0;
    const char* caFile = std::getenv("VELLUMENT_TLS_CA_FILE");
    if (caFile != nullptr)
        m_impl->tls.caFile = caFile;
}

CkHttp::~CkHttp()
{
    delete m_impl;
}

void CkHttp::SetRequestHeader(const char* name, const char* value)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    // A line break would let a value write fields of its own into the request head.
    if (name == nullptr || *name == '\0' || std::strpbrk(name, "\r\n:") != nullptr ||
        (value != nullptr && std::strpbrk(value, "\r\n") != nullptr))
        return;
    const std::string n = fromAnsi(name);
    HeaderList& list = m_impl->headers;
    auto it = list.begin();
    while (it != list.end() && !ckhttp::equalsNoCase(it->name, n.c_str()))
        ++it;
    if (value == nullptr || *value == '\0') {
        if (it != list.end())
            list.erase(it);
        return;
    }
    // A Content-Type in the list takes the place of the default one.
    if (it != list.end())
        it->value = fromAnsi(value);
    else
        list.push_back(Header{n, fromAnsi(value)});
}

CkHttpResponse* CkHttp::PostXml(const char* url, const char* xml, const char* charset)
{
    return CkHttpInternal::postXml(*this, url, xml, xml ? std::strlen(xml) : 0, charset);
}

CkHttpResponse* CkHttpInternal::postXml(CkHttp& http, const char* url, const char* xml, std::size_t size,
                                        const char* charset, bool ascii)
{
    CkHttp::Impl* const impl = http.m_impl;
    std::lock_guard<std::mutex> guard(impl->lock);
    Trail& trail = impl->trail;
    trail.clear();
    trail.enter("PostXml");
    impl->lastSucceeded = false;
    try {
        trail.add("charset", charset ? charset : "");
        Body body;
        makeBody(xml, size, ascii, charset, body, trail);
        return impl->post(fromAnsi(url), body);
    } catch (const std::bad_alloc&) {
        return impl->fail("Out of memory.");
    }
}

bool CkHttp::LastCallSucceeded()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->lastSucceeded;
}

const char* CkHttp::lastErrorText()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->lastErrorOut = Ostrel::Format::Utf8ToAnsi(m_impl->trail.text());
    return m_impl->lastErrorOut.c_str();
}

int CkHttp::get_ConnectTimeout()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->connectTimeoutMs;
}

void CkHttp::put_ConnectTimeout(int ms)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->connectTimeoutMs = ms;
}

int CkHttp::get_ReadTimeoutMs()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->readTimeoutMs;
}

void CkHttp::put_ReadTimeoutMs(int ms)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->readTimeoutMs = ms;
}

bool CkHttp::get_FollowRedirects()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->followRedirects;
}

void CkHttp::put_FollowRedirects(bool follow)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->followRedirects = follow;
}

bool CkHttp::get_AllowGzip()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->allowGzip;
}

void CkHttp::put_AllowGzip(bool allow)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->allowGzip = allow;
}

unsigned long CkHttp::get_MaxResponseSize()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->maxResponseSize;
}

void CkHttp::put_MaxResponseSize(unsigned long bytes)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->maxResponseSize = bytes;
}

bool CkHttp::get_RequireSslCertVerify()
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    return m_impl->tls.verify;
}

void CkHttp::put_RequireSslCertVerify(bool require)
{
    std::lock_guard<std::mutex> guard(m_impl->lock);
    m_impl->tls.verify = require;
}
