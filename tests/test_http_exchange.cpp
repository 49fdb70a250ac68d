// CkHttp against a scripted server over plain TCP: the request bytes, every framing of a reply,
// redirects, limits and the error trail.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>
#include <zlib.h>

#include "http_call.h"
#include "http_script_server.h"
#include "loopback_settings.h"

using httptest::call;
using httptest::CallResult;
using httptest::ScriptServer;

namespace {

const char* const kEnvelope = "<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope>x</soap:Envelope>";

std::string gzipOf(const std::string& text)
{
    z_stream z{};
    deflateInit2(&z, Z_BEST_COMPRESSION, Z_DEFLATED, 16 + MAX_WBITS, 9, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, text.size()), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    z.avail_in = static_cast<uInt>(text.size());
    z.next_out = reinterpret_cast<Bytef*>(&out[0]);
    z.avail_out = static_cast<uInt>(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

std::string ok(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

} // namespace

TEST(HttpRequest, SoapCallGoesOutByteForByte)
{
    ScriptServer server({ok("<r/>")});
    CallResult r = call(server.url("/supportservices.asmx"), kEnvelope, httptest::soapHeaders);
    ASSERT_TRUE(r.returned) << r.trail;
    EXPECT_TRUE(r.succeeded);
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, "<r/>");
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(server.requests()[0].bytes,
              httptest::soapHead("/supportservices.asmx", server.port(), std::strlen(kEnvelope)) + kEnvelope);
    EXPECT_NE(r.trail.find("Success."), std::string::npos);
}

TEST(HttpRequest, UrlFormsAndHeaderRules)
{
    struct Case {
        const char* name;
        std::string url;  // "PORT" stands for the server's port
        std::function<void(CkHttp&)> setup;
        const char* xml;
        std::string head;  // expected request, "PORT" likewise
    };
    const std::string plainTail = "Accept: */*\r\nAccept-Encoding: gzip\r\nContent-Type: text/xml\r\nContent-Length: ";
    std::vector<Case> cases = {
        {"backslashes, blank, query, user info", "http:\\\\user:pw@127.0.0.1:PORT/a b?x=1", nullptr, "<a/>",
         "POST /a%20b?x=1 HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\n" + plainTail + "4\r\n\r\n<a/>"},
        {"empty path, ANSI body to UTF-8", "http://127.0.0.1:PORT", nullptr, "<a>\xE9</a>",
         "POST / HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\n" + plainTail + "9\r\n\r\n<a>\xC3\xA9</a>"},
        {"general order of the fields", "http://127.0.0.1:PORT/p",
         [](CkHttp& h) {
             h.SetRequestHeader("X-One", "1");
             h.SetRequestHeader("Authorization", "Basic abc");
             h.SetRequestHeader("Connection", "keep-alive");
             h.SetRequestHeader("User-Agent", "ua");
             h.SetRequestHeader("accept", "text/*");  // replaces in place, keeps the list's spelling
             h.SetRequestHeader("X-Two", "2");
             h.SetRequestHeader("X-One", "");         // removes
             h.SetRequestHeader("X-Bad", "a\r\nInjected: 1");  // refused
         },
         "",
         "POST /p HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\nUser-Agent: ua\r\nAccept: text/*\r\nAccept-Encoding: gzip\r\n"
         "Content-Type: text/xml\r\nContent-Length: 0\r\nConnection: keep-alive\r\nX-Two: 2\r\n"
         "Authorization: Basic abc\r\n\r\n"},
        {"no gzip asked for", "http://127.0.0.1:PORT/",
         [](CkHttp& h) {
             h.put_AllowGzip(false);
             h.SetRequestHeader("Accept", "");
         },
         "x", "POST / HTTP/1.1\r\nHost: 127.0.0.1:PORT\r\nContent-Type: text/xml\r\nContent-Length: 1\r\n\r\nx"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptServer server({ok("")});
        auto port = [&](std::string s) {
            for (std::size_t p; (p = s.find("PORT")) != std::string::npos;)
                s.replace(p, 4, std::to_string(server.port()));
            return s;
        };
        CallResult r = call(port(c.url), c.xml, c.setup);
        ASSERT_TRUE(r.succeeded) << r.trail;
        ASSERT_EQ(server.requests().size(), 1u);
        EXPECT_EQ(server.requests()[0].bytes, port(c.head));
    }
}

TEST(HttpRequest, BodyInTheGivenCharset)
{
    struct Case {
        const char* charset;
        std::string body;
    };
    const std::vector<Case> cases = {
        {"utf-8", "<a>\xC3\xA9\xE2\x82\xAC</a>"},
        {"windows-1252", "<a>\xE9\x80</a>"},
        {"iso-8859-15", "<a>\xE9\xA4</a>"},
        {"utf-16", std::string("<\0a\0>\0\xE9\0\xAC\x20<\0/\0a\0>\0", 18)},
        {"no-such-charset", "<a>\xC3\xA9\xE2\x82\xAC</a>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.charset);
        ScriptServer server({ok("")});
        CkHttp http;
        std::unique_ptr<CkHttpResponse> r(http.PostXml(server.url().c_str(), "<a>\xE9\x80</a>", c.charset));
        ASSERT_TRUE(r) << http.lastErrorText();
        const std::string request = server.requests().at(0).bytes;
        EXPECT_EQ(request.substr(request.find("\r\n\r\n") + 4), c.body);
    }
}

TEST(HttpRequest, BadUrlsFailBeforeAnyConnection)
{
    for (const char* url : {"ftp://127.0.0.1/", "http://", "http://:80/", "https://127.0.0.1:99999/"}) {
        CallResult r = call(url, "x");
        EXPECT_FALSE(r.returned) << url;
        EXPECT_FALSE(r.succeeded);
        EXPECT_TRUE(r.trail.find("Unable to parse URL") != std::string::npos ||
                    r.trail.find("No domain in URL") != std::string::npos)
            << r.trail;
        EXPECT_NE(r.trail.find("Failed."), std::string::npos);
    }
}

TEST(HttpReply, EveryFraming)
{
    struct Case {
        const char* name;
        std::string reply;
        int status;
        std::string body;
        int readTimeoutMs;
    };
    const std::vector<Case> cases = {
        {"content length, no more", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabcdef", 200, "abc", 5000},
        {"chunked with extension and trailer",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4;x=y\r\n<a>b\r\nA\r\n0123456789\r\n0\r\nT: 1\r\n\r\n", 200,
         "<a>b0123456789", 5000},
        {"204 has no body", "HTTP/1.1 204 No Content\r\n\r\nignored", 204, "", 5000},
        {"until close", "HTTP/1.1 200 OK\r\n\r\nto the end<<close>>", 200, "to the end", 5000},
        {"until silence", "HTTP/1.1 200 OK\r\n\r\nthen quiet", 200, "then quiet", 300},
        {"100 is skipped", "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok", 200, "ok", 5000},
        {"LF LF ends a head", "HTTP/1.1 200 OK\nContent-Length: 2\n\nok", 200, "ok", 5000},
        {"3xx without close has no body", "HTTP/1.1 304 Not Modified\r\n\r\nstray", 304, "", 5000},
        {"3xx with close reads to the end", "HTTP/1.1 300 Choices\r\nConnection: close\r\n\r\nlist<<close>>", 300, "list",
         5000},
        {"500 with a SOAP fault",
         "HTTP/1.1 500 Internal Server Error\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: 53\r\n\r\n"
         "<soap:Fault><faultstring>x</faultstring></soap:Fault>",
         500, "<soap:Fault><faultstring>x</faultstring></soap:Fault>", 5000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptServer server({c.reply});
        CallResult r = call(server.url("/"), "x", [&](CkHttp& h) {
            h.put_ReadTimeoutMs(c.readTimeoutMs);
            h.put_FollowRedirects(false);
        });
        ASSERT_TRUE(r.returned) << r.trail;
        EXPECT_TRUE(r.succeeded);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.bytes, c.body);
    }
}

TEST(HttpReply, TransportFailuresAndTheirTexts)
{
    struct Case {
        const char* name;
        std::string reply;
        bool returned;  // a status came, so the response still comes back
        std::vector<const char*> texts;
        std::function<void(CkHttp&)> setup = nullptr;
    };
    const std::string huge(300 * 1024, 'h');
    const std::vector<Case> cases = {
        {"not HTTP", "SMTP ready\r\n\r\n", false, {"Expected HTTP response start line to begin with \"HTTP\""}},
        {"no status", "HTTP/1.1 OK\r\n\r\n", false, {"No valid integer status code found in HTTP response."}},
        {"silent server", "<<silent:2000>>", false,
         {"Failed to read response header.", "The server did not respond in 200 milliseconds."},
         [](CkHttp& h) { h.put_ReadTimeoutMs(200); }},
        {"closed without reply", "<<close>>", false, {"Failed to read response header."}},
        {"head that never ends", "HTTP/1.1 200 OK\r\nX: " + huge, false, {"HTTP response header is too large."}},
        {"proxy authentication", "HTTP/1.1 407 Proxy\r\nContent-Length: 0\r\n\r\n", false,
         {"Proxy authentication failed or not satisfied."}},
        {"declared 10^18 bytes", "HTTP/1.1 200 OK\r\nContent-Length: 1000000000000000000\r\n\r\nab<<close>>", false,
         {"larger than the toolkit's limit"}},
        {"chunk of 2^64-1 bytes", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFF\r\nab<<close>>",
         false, {"larger than the toolkit's limit"}},
        {"over MaxResponseSize", ok("0123456789"), false, {"larger than MaxResponseSize (4 bytes)"},
         [](CkHttp& h) { h.put_MaxResponseSize(4); }},
        {"body cut short", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc<<close>>", true,
         {"Failed to read response body."}},
        {"chunk data cut short", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\nabc<<close>>", true,
         {"Failed to read chunk data."}},
        {"no size line", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n<<close>>", true,
         {"Failed to get next chunk size."}},
        {"size line without digits", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", true,
         {"chunk response error 3"}},
        {"no CRLF after chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nabXY\r\n", true,
         {"Failed to read trailing CRLF after chunk."}},
        {"gzip that doesn't unpack", "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 12\r\n\r\n\x1f\x8b" "0123456789",
         false, {"Failed to ungzip response data.", "Failed to ungzip response body."}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptServer server({c.reply});
        CallResult r = call(server.url("/"), "x", c.setup);
        EXPECT_EQ(r.returned, c.returned);
        EXPECT_EQ(r.succeeded, c.returned);
        for (const char* text : c.texts)
            EXPECT_NE(r.trail.find(text), std::string::npos) << text << "\n" << r.trail;
        EXPECT_NE(r.trail.find(c.returned ? "Success." : "Failed."), std::string::npos);
    }
}

TEST(HttpReply, ConnectFailures)
{
    int port;
    {
        ScriptServer gone({});
        port = gone.port();
    }
    CallResult r = call("http://127.0.0.1:" + std::to_string(port) + "/", "x");
    EXPECT_FALSE(r.returned);
    EXPECT_FALSE(r.succeeded);
    EXPECT_NE(r.trail.find("Connection refused"), std::string::npos) << r.trail;

    // A listener whose queue is full drops further handshakes: the connect limit must hold.
    sockaddr_in addr{};
    const int listener = loopback::bound_loopback_socket(addr);
    ASSERT_GE(listener, 0);
    ASSERT_EQ(listen(listener, 0), 0);
    std::vector<int> queued;
    for (int i = 0; i < 4; ++i) {
        queued.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        connect(queued.back(), reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    }
    r = call("http://127.0.0.1:" + std::to_string(ntohs(addr.sin_port)) + "/", "x",
             [](CkHttp& h) { h.put_ConnectTimeout(300); });
    EXPECT_FALSE(r.returned);
    EXPECT_NE(r.trail.find("timed out after 300 milliseconds"), std::string::npos) << r.trail;
    for (int fd : queued)
        close(fd);
    close(listener);
}

TEST(HttpReply, ServerGoneWhileSendingIsAFailureNotASignal)
{
    sockaddr_in addr{};
    const int listener = loopback::bound_loopback_socket(addr);
    ASSERT_GE(listener, 0);
    ASSERT_EQ(listen(listener, 1), 0);
    std::thread reset([listener] {
        int fd = accept(listener, nullptr, nullptr);
        char some[1024];
        recv(fd, some, sizeof some, 0);
        linger abort{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        close(fd);
    });
    const std::string body(8 << 20, 'b');
    CallResult r = call("http://127.0.0.1:" + std::to_string(ntohs(addr.sin_port)) + "/", body.c_str());
    reset.join();
    close(listener);
    EXPECT_FALSE(r.returned);
    EXPECT_NE(r.trail.find("Failed to send"), std::string::npos) << r.trail;
}

TEST(HttpReply, GzipUnderItsExactCondition)
{
    const std::string text = "<?xml version=\"1.0\"?><r>packed text</r>";
    const std::string packed = gzipOf(text);
    auto reply = [&](const std::string& field) {
        return "HTTP/1.1 200 OK\r\n" + field + "Content-Length: " + std::to_string(packed.size()) + "\r\n\r\n" + packed;
    };
    {
        ScriptServer server({reply("Content-Type: text/xml\r\nContent-Encoding: gzip\r\n")});
        EXPECT_EQ(call(server.url(), "x").body, text);
    }
    {
        ScriptServer server({reply("Content-Type: application/x-gzip\r\n")});
        EXPECT_EQ(call(server.url(), "x").bytes, text);
    }
    {
        // No gzip named anywhere: the bytes stay packed and read as text of the default charset.
        ScriptServer server({reply("Content-Type: text/xml\r\n")});
        CallResult r = call(server.url(), "x");
        EXPECT_EQ(r.bytes, packed);
        EXPECT_EQ(r.body.substr(0, 2), packed.substr(0, 2));
    }
    {
        ScriptServer server({reply("Content-Encoding: gzip\r\n")});
        EXPECT_EQ(call(server.url(), "x", [](CkHttp& h) { h.put_AllowGzip(false); }).bytes, packed);
    }
}

TEST(HttpReply, GzipBombStopsAtTheLimit)
{
    const std::string packed = gzipOf(std::string(8 << 20, 'a'));
    ScriptServer server({"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: " + std::to_string(packed.size()) +
                         "\r\n\r\n" + packed});
    CallResult r = call(server.url(), "x", [](CkHttp& h) { h.put_MaxResponseSize(1 << 20); });
    EXPECT_FALSE(r.returned);
    EXPECT_NE(r.trail.find("larger than MaxResponseSize (1048576 bytes)"), std::string::npos) << r.trail;
}

TEST(HttpReply, KeptConnectionServesTheNextCall)
{
    ScriptServer server({ok("one"), ok("two")});
    CkHttp http;
    std::unique_ptr<CkHttpResponse> first(http.PostXml(server.url().c_str(), "a", "utf-8"));
    std::unique_ptr<CkHttpResponse> second(http.PostXml(server.url().c_str(), "b", "utf-8"));
    ASSERT_TRUE(first && second) << http.lastErrorText();
    EXPECT_STREQ(second->BodyStr(), "two");
    EXPECT_EQ(server.connections(), 1);
    EXPECT_EQ(server.requests().size(), 2u);
}

TEST(HttpRedirect, VerbBodyAndLocationForms)
{
    struct Case {
        const char* name;
        int status;
        const char* location;
        const char* secondLine;  // request line of the second request
        bool keepsBody;
    };
    const std::vector<Case> cases = {
        {"302 becomes GET without a body", 302, "http://127.0.0.1:<<port>>/next", "GET /next HTTP/1.1", false},
        {"301 repeats the POST", 301, "/moved?a=1", "POST /moved?a=1 HTTP/1.1", true},
        {"303 is treated like 307", 303, "//127.0.0.1:<<port>>/other", "POST /other HTTP/1.1", true},
        {"307 to the same place", 307, "/dir/start", "POST /dir/start HTTP/1.1", true},
        {"308 relative to the path", 308, "sibling", "POST /dir/sibling HTTP/1.1", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptServer server({"HTTP/1.1 " + std::to_string(c.status) + " Moved\r\nLocation: " + c.location +
                                 "\r\nContent-Length: 0\r\n\r\n",
                             ok("done")});
        CallResult r = call(server.url("/dir/start"), "<b/>", [](CkHttp& h) {
            h.SetRequestHeader("Authorization", "Basic abc");
            h.SetRequestHeader("Content-Type", "text/xml; charset=utf-8");
        });
        ASSERT_TRUE(r.succeeded) << r.trail;
        EXPECT_EQ(r.body, "done");
        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), 2u);
        EXPECT_EQ(server.connections(), 2);  // a redirect always takes a new connection
        const std::string& second = requests[1].bytes;
        EXPECT_EQ(second.substr(0, second.find('\r')), c.secondLine);
        EXPECT_EQ(second.find("Content-Length: 4\r\n") != std::string::npos, c.keepsBody);
        EXPECT_EQ(second.find("Content-Type:") != std::string::npos, c.keepsBody);
        EXPECT_EQ(second.size() >= 4 && second.compare(second.size() - 4, 4, "<b/>") == 0, c.keepsBody);
        EXPECT_NE(second.find("Authorization: Basic abc"), std::string::npos);  // same host
        const std::string line = c.secondLine;
        const std::size_t path = line.find(' ') + 1;
        EXPECT_EQ(r.finalUrl, server.url(line.substr(path, line.rfind(' ') - path)));
    }
}

TEST(HttpRedirect, AnotherHostLosesAuthorization)
{
    ScriptServer target({ok("there")});
    ScriptServer origin({"HTTP/1.1 302 Found\r\nLocation: http://localhost:" + std::to_string(target.port()) +
                         "/t\r\nContent-Length: 0\r\n\r\n"});
    CallResult r = call(origin.url("/o"), "<b/>", [](CkHttp& h) { h.SetRequestHeader("Authorization", "Basic abc"); });
    ASSERT_TRUE(r.succeeded) << r.trail;
    EXPECT_EQ(r.body, "there");
    EXPECT_EQ(target.requests().at(0).bytes, "GET /t HTTP/1.1\r\nHost: localhost:" + std::to_string(target.port()) +
                                                 "\r\nAccept: */*\r\nAccept-Encoding: gzip\r\n\r\n");
    EXPECT_EQ(r.finalUrl, "http://localhost:" + std::to_string(target.port()) + "/t");
}

TEST(HttpRedirect, LimitsAndFailures)
{
    const std::string loop = "HTTP/1.1 307 Again\r\nLocation: /loop\r\nContent-Length: 5\r\n\r\nagain";
    {
        // The reply to the tenth request is the result.
        ScriptServer server(std::vector<std::string>(12, loop));
        CallResult r = call(server.url("/loop"), "x");
        ASSERT_TRUE(r.succeeded) << r.trail;
        EXPECT_EQ(r.status, 307);
        EXPECT_EQ(r.body, "again");
        EXPECT_EQ(server.requests().size(), 10u);
    }
    {
        ScriptServer server({loop});
        CallResult r = call(server.url("/loop"), "x", [](CkHttp& h) { h.put_FollowRedirects(false); });
        EXPECT_EQ(r.status, 307);
        EXPECT_EQ(server.requests().size(), 1u);
    }
    struct Case {
        std::string reply;
        const char* text;
    };
    const std::vector<Case> cases = {
        {"HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n", "Failed to get redirect location."},
        {"HTTP/1.1 301 Moved\r\nLocation: http://\r\nContent-Length: 0\r\n\r\n", "Invalid redirect URL."},
    };
    for (const Case& c : cases) {
        ScriptServer server({c.reply});
        CallResult r = call(server.url(), "x");
        EXPECT_FALSE(r.returned);
        EXPECT_NE(r.trail.find(c.text), std::string::npos) << r.trail;
    }
}
