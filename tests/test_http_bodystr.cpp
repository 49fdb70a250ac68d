// BodyStr of replies from a scripted server: byte order marks, text or binary, the charset
// search and the conversion into the ANSI code page.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http_call.h"
#include "http_script_server.h"

namespace {

struct Case {
    const char* name;
    std::string contentType;  // empty: no Content-Type field
    std::string body;         // bytes on the wire
    std::string text;         // BodyStr, ANSI
};

// "é" as UTF-8, and as ANSI; "Ã©" is what its UTF-8 bytes read as in windows-1252.
const std::string kUtf8E = "\xC3\xA9";
const std::string kAnsiE = "\xE9";

} // namespace

TEST(HttpBodyStr, CharsetRules)
{
    const std::string undeclared = "<?xml version=\"1.0\"?><a>" + kUtf8E + "</a>";
    const std::vector<Case> cases = {
        {"charset parameter", "text/xml; charset=utf-8", "<a>" + kUtf8E + "</a>", "<a>" + kAnsiE + "</a>"},
        {"quoted latin-1 parameter", "text/plain; charset=\"ISO-8859-1\"", "caf" + kAnsiE, "caf" + kAnsiE},
        {"XML without a declared encoding reads as windows-1252", "text/xml", undeclared, undeclared},
        {"unless a byte order mark says UTF-8", "text/xml", "\xEF\xBB\xBF" + undeclared,
         "<?xml version=\"1.0\"?><a>" + kAnsiE + "</a>"},
        {"declared encoding decides", "",
         "<?xml version=\"1.0\" encoding=\"utf-8\"?><a>" + kUtf8E + "</a>",
         "<?xml version=\"1.0\" encoding=\"utf-8\"?><a>" + kAnsiE + "</a>"},
        {"declared 8-bit encoding", "application/xml", "<?xml version='1.0' encoding='iso-8859-1'?><a>\xE9</a>",
         "<?xml version='1.0' encoding='iso-8859-1'?><a>" + kAnsiE + "</a>"},
        {"UTF-16 little endian by its mark", "text/xml", std::string("\xFF\xFE<\0a\0>\0\xE9\0", 10), "<a>" + kAnsiE},
        {"UTF-16 big endian by its mark", "", std::string("\xFE\xFF\0<\0\xE9", 6), "<" + kAnsiE},
        {"JSON is UTF-8", "application/json", "{\"a\":\"" + kUtf8E + "\"}", "{\"a\":\"" + kAnsiE + "\"}"},
        {"HTML meta tag", "text/html", "<html><meta charset=\"utf-8\"><p>" + kUtf8E, "<html><meta charset=\"utf-8\"><p>" + kAnsiE},
        {"NUL bytes become blanks", "text/plain", std::string("a\0b", 3), "a b"},
        {"binary is taken over the same way", "application/octet-stream", std::string("\x80\0z", 3), "\x80 z"},
        {"characters outside the code page are lost", "text/plain; charset=utf-8", "\xCE\xA9\xE2\x82\xAC", "?\x80"},
        {"empty body", "text/xml", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string head = "HTTP/1.1 200 OK\r\n";
        if (!c.contentType.empty())
            head += "Content-Type: " + c.contentType + "\r\n";
        httptest::ScriptServer server({head + "Content-Length: " + std::to_string(c.body.size()) + "\r\n\r\n" + c.body});
        httptest::CallResult r = httptest::call(server.url(), "x");
        ASSERT_TRUE(r.succeeded) << r.trail;
        EXPECT_EQ(r.bytes, c.body);
        EXPECT_EQ(r.body, c.text);
    }
}

TEST(HttpBodyStr, HeadFieldsOfTheResponse)
{
    httptest::ScriptServer server({"HTTP/1.1 200 Fine Thanks\r\nX-Caf\xC3\xA9: v\xC3\xA9\r\nContent-Length: 0\r\n\r\n"});
    CkHttp http;
    std::unique_ptr<CkHttpResponse> r(http.PostXml(server.url().c_str(), "x", "utf-8"));
    ASSERT_TRUE(r);
    EXPECT_STREQ(r->statusText(), "Fine Thanks");
    EXPECT_STREQ(r->getHeaderField("content-length"), "0");
    EXPECT_STREQ(r->getHeaderField("x-caf\xE9"), "v\xE9");
    EXPECT_EQ(r->getHeaderField("Location"), nullptr);
    EXPECT_STREQ(r->header(), "HTTP/1.1 200 Fine Thanks\r\nX-Caf\xE9: v\xE9\r\nContent-Length: 0\r\n\r\n");
}
