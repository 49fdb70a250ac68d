// CkHttp over TLS against the scripted server: the ClientHello, the fall-backs and the opt-in
// certificate verification.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "http_call.h"
#include "http_script_server.h"
#include "test_util.h"

using httptest::call;
using httptest::CallResult;
using httptest::ScriptServer;
using httptest::ServerOptions;

namespace {

const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n<r/>";

ServerOptions tls(std::function<void(ServerOptions&)> change = nullptr)
{
    ServerOptions o;
    o.tls = true;
    if (change)
        change(o);
    return o;
}

// The cipher suites of the client's table, by number, in order of preference.
const std::vector<std::uint16_t> kTable = {
    0x1301, 0x1303, 0x1302,                          // TLS 1.3
    0xC02B, 0xCCA8, 0xCCA9, 0xCCAA,                  // ECDHE-ECDSA-AES128-GCM, *-CHACHA20
    0xC013, 0x0033, 0x002F, 0xC014, 0x0039, 0x0035,  // CBC SHA
    0xC027, 0x0067, 0x003C, 0x006B, 0x003D, 0xC028,  // CBC SHA256/384
    0xC02F, 0x009E, 0x009C, 0xC030, 0x009F, 0x009D,  // GCM
    0xC009, 0xC023, 0xC00A, 0xC024, 0xC02C,          // ECDSA
    0xC012, 0x0016, 0x000A,                          // 3DES
    0xC011, 0x0005, 0x0004,                          // RC4
    0x0015, 0x0009,                                  // DES
};

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~ScopedEnv() { unsetenv(name_); }

private:
    const char* name_;
};

} // namespace

TEST(HttpTls, SoapCallOverTlsWithTheOfferedHello)
{
    ScriptServer server({kOk}, tls());
    CallResult r = call(server.url("/supportservices.asmx"), "<e/>", httptest::soapHeaders);
    ASSERT_TRUE(r.succeeded) << r.trail;
    EXPECT_EQ(r.body, "<r/>");
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(server.requests()[0].bytes, httptest::soapHead("/supportservices.asmx", server.port(), 4) + "<e/>");
    EXPECT_NE(r.trail.find("Not verifying server certificate..."), std::string::npos);
    EXPECT_NE(r.trail.find("Set the RequireSslCertVerify property to enable verification."), std::string::npos);

    ASSERT_EQ(server.hellos().size(), 1u);
    const httptest::TlsHello hello = server.hellos()[0];
    EXPECT_EQ(hello.negotiated, "TLSv1.3");
    EXPECT_EQ(hello.serverName, "");  // no SNI for an address
    EXPECT_EQ(hello.versions, (std::vector<std::uint16_t>{0x0304, 0x0303, 0x0302, 0x0301}));
    // Every suite offered comes from the table, in the table's order (0x00FF only signals
    // renegotiation); the installed OpenSSL decides which of them exist.
    std::vector<std::uint16_t> offered;
    for (std::uint16_t c : hello.ciphers)
        if (c != 0x00FF)
            offered.push_back(c);
    std::vector<std::uint16_t> expected;
    std::string missing;
    for (std::uint16_t c : kTable) {
        if (std::find(offered.begin(), offered.end(), c) != offered.end())
            expected.push_back(c);
        else
            missing += " " + std::to_string(c);
    }
    EXPECT_EQ(offered, expected);
    EXPECT_GE(offered.size(), 25u) << "not offered:" << missing;
    RecordProperty("cipher_suites_not_offered", missing);
}

TEST(HttpTls, HostNameGoesOutAsSni)
{
    ScriptServer server({kOk}, tls());
    CallResult r = call("https://localhost:" + std::to_string(server.port()) + "/", "x");
    ASSERT_TRUE(r.succeeded) << r.trail;
    ASSERT_FALSE(server.hellos().empty());
    EXPECT_EQ(server.hellos().back().serverName, "localhost");
    EXPECT_NE(server.requests().at(0).bytes.find("\r\nHost: localhost:" + std::to_string(server.port()) + "\r\n"),
              std::string::npos);
}

TEST(HttpTls, VersionNegotiationAndFallBacks)
{
    {
        // A TLS 1.2 server is met on the first try.
        ScriptServer server({kOk}, tls([](ServerOptions& o) { o.tls12Only = true; }));
        CallResult r = call(server.url(), "x");
        ASSERT_TRUE(r.succeeded) << r.trail;
        EXPECT_EQ(server.connections(), 1);
        EXPECT_EQ(server.hellos().at(0).negotiated, "TLSv1.2");
    }
    {
        // A server that breaks off at a TLS 1.3 hello is reached by a second hello without it.
        ScriptServer server({kOk}, tls([](ServerOptions& o) { o.refuseTls13Hello = true; }));
        CallResult r = call(server.url(), "x");
        ASSERT_TRUE(r.succeeded) << r.trail;
        EXPECT_NE(r.trail.find("Failed to read the TLS server hello.  Retry without TLS 1.3"), std::string::npos);
        EXPECT_EQ(server.connections(), 2);
        ASSERT_EQ(server.hellos().size(), 2u);
        EXPECT_EQ(server.hellos()[1].versions, std::vector<std::uint16_t>{});
        EXPECT_EQ(server.hellos()[1].negotiated, "TLSv1.2");
    }
    {
        // A handshake that fails after the server's hello gets one more try at exactly TLS 1.2.
        ScriptServer server({kOk}, tls([](ServerOptions& o) { o.breakAfterHelloOnce = true; }));
        CallResult r = call(server.url(), "x");
        ASSERT_TRUE(r.succeeded) << r.trail;
        EXPECT_EQ(server.connections(), 2);
        ASSERT_EQ(server.hellos().size(), 2u);
        EXPECT_EQ(server.hellos()[0].versions.front(), 0x0304);
        EXPECT_EQ(server.hellos()[1].versions, std::vector<std::uint16_t>{});
        EXPECT_EQ(r.trail.find("Retry without TLS 1.3"), std::string::npos);
        EXPECT_NE(r.trail.find("exactly TLS 1.2"), std::string::npos) << r.trail;
    }
    {
        // A server that drops every handshake: both tries fail and the call with them.
        ScriptServer server({kOk}, tls([](ServerOptions& o) { o.abortHandshake = true; }));
        CallResult r = call(server.url(), "x");
        EXPECT_FALSE(r.returned);
        EXPECT_NE(r.trail.find("Client handshake failed. (1)"), std::string::npos) << r.trail;
        EXPECT_EQ(server.connections(), 2);
    }
    {
        // Plain HTTP where TLS was asked for: no server hello comes, and the call fails in time.
        ScriptServer server({kOk, kOk});
        CallResult r = call("https://127.0.0.1:" + std::to_string(server.port()) + "/", "x",
                            [](CkHttp& h) { h.put_ConnectTimeout(300); });
        EXPECT_FALSE(r.returned);
        EXPECT_NE(r.trail.find("Client handshake failed. (1)"), std::string::npos) << r.trail;
    }
}

TEST(HttpTls, CertificateVerificationIsOptIn)
{
    testutil::TempDir dir;
    const std::string otherName = dir.file("other.pem");
    const std::string ownName = dir.file("own.pem");
    testutil::write_file(otherName, httptest::TestCertificate::forName("filing.other.example").certPem);
    testutil::write_file(ownName, httptest::TestCertificate::forName("127.0.0.1").certPem);
    auto other = tls([](ServerOptions& o) { o.certName = "filing.other.example"; });
    auto own = tls([](ServerOptions& o) { o.certName = "127.0.0.1"; });
    {
        // By default a self-signed certificate for another name passes.
        ScriptServer server({kOk}, other);
        EXPECT_TRUE(call(server.url(), "x").succeeded);
    }
    {
        ScopedEnv verify("VELLUMENT_TLS_VERIFY", "1");
        ScopedEnv ca("VELLUMENT_TLS_CA_FILE", otherName);
        EXPECT_TRUE(CkHttp().get_RequireSslCertVerify());
        // Trusted, but for another name.
        ScriptServer server({kOk}, other);
        CallResult r = call(server.url(), "x");
        EXPECT_FALSE(r.returned);
        EXPECT_NE(r.trail.find("The server certificate did not pass verification: "), std::string::npos) << r.trail;
        EXPECT_NE(r.trail.find("Client handshake failed. (1)"), std::string::npos);
        EXPECT_EQ(server.connections(), 1);
    }
    {
        ScopedEnv ca("VELLUMENT_TLS_CA_FILE", ownName);
        auto verify = [](CkHttp& h) { h.put_RequireSslCertVerify(true); };
        ScriptServer trusted({kOk}, own);
        CallResult r = call(trusted.url(), "x", verify);
        EXPECT_TRUE(r.succeeded) << r.trail;
        EXPECT_EQ(r.trail.find("Not verifying"), std::string::npos);
        // Not in the trusted file.
        ScriptServer stranger({kOk}, tls([](ServerOptions& o) { o.certName = "127.0.0.2"; }));
        r = call(stranger.url(), "x", verify);
        EXPECT_FALSE(r.returned);
        EXPECT_NE(r.trail.find("self-signed certificate"), std::string::npos) << r.trail;
    }
}
