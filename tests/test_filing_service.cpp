// The stand-in filing service, run as its own process and spoken to over HTTPS with the envelopes
// that the library's client sends.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <signal.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include "company_fixture.h"
#include "filing_service_fixture.h"
#include "soap_test_util.h"

using vlmtest::FilingService;

namespace {

const char kNamespace[] = VELLUMENT_TEST_SERVICE_NAMESPACE;

// The HTTP client of these tests writes through OpenSSL, which raises SIGPIPE when the server has
// already cut the connection off; that is the point of some of them.
const bool kSigpipeIgnored = signal(SIGPIPE, SIG_IGN) != SIG_ERR;
const char kAccessKey[] = "QXTR4-LMZ82-HBVNC-WPJK6-3DGAF";

// The request body exactly as the client builds it.
std::string envelope(const std::string& op, const std::vector<std::pair<std::string, std::string>>& params)
{
    std::string parameters;
    for (const auto& p : params)
        parameters += soaptest::parameter(p.first, p.second);
    return soaptest::request(kNamespace, op, parameters);
}

// The client's upload encoding for the few characters these tests use.
std::string entity_encode(const std::string& text)
{
    std::string out;
    for (char c : text) {
        switch (static_cast<unsigned char>(c)) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&apos;"; break;
        case 0xE9: out += "&eacute;"; break;
        case 0x80: out += "&euro;"; break;
        default: out += c;
        }
    }
    return out;
}

struct Filing {
    std::string ein = "123456789";
    std::string form = "W2";
    std::string year = "2025";
};

struct Reply {
    bool ok = false;  // an HTTP reply came
    int status = 0;
    std::string body;
    httplib::Headers headers;
    std::string answer;  // text of the operation's answer element under soap:Body
    std::string fault;   // soap:Body/soap:Fault/faultstring
};

class Client {
public:
    explicit Client(const FilingService& service)
        : http_("https://127.0.0.1:" + std::to_string(service.port()))
    {
        http_.enable_server_certificate_verification(false);
        http_.set_read_timeout(60, 0);
        http_.set_connection_timeout(10, 0);
    }

    Reply post(const std::string& op, const std::string& body, const std::string& action = "")
    {
        // Accepting gzip, as many clients do: only the gzip fault may make use of it.
        const httplib::Headers headers = {{"SOAPAction", action.empty() ? kNamespace + op : action},
                                          {"Accept-Encoding", "gzip"}};
        auto res = http_.Post("/supportservices.asmx", headers, body, "text/xml; charset=utf-8");
        Reply r;
        if (!res)
            return r;
        r.ok = true;
        r.status = res->status;
        r.body = res->body;
        r.headers = res->headers;
        // Line ends as they stand, as the client's reply reader keeps them.
        pugi::xml_document doc;
        doc.load_string(r.body.c_str(), (pugi::parse_default | pugi::parse_ws_pcdata) & ~pugi::parse_eol);
        const pugi::xml_node soap_body = doc.document_element().child("soap:Body");
        const char* element = op == "GetVellument" ? "fileText" : op == "GetVellumentHash" ? "hash" : "response";
        r.answer = soap_body.child((op + "Response").c_str()).child_value(element);
        r.fault = soap_body.child("soap:Fault").child_value("faultstring");
        return r;
    }

    Reply call(const std::string& op, const Filing& f = Filing())
    {
        return post(op, envelope(op, {{"accessKey", kAccessKey}, {"ein", f.ein}, {"formName", f.form},
                                      {"year", f.year}}));
    }

    Reply store(const std::string& text, const std::string& hash, const Filing& f = Filing())
    {
        return post("StoreVellument",
                    envelope("StoreVellument", {{"accessKey", kAccessKey}, {"ein", f.ein}, {"formName", f.form},
                                                {"year", f.year}, {"hash", hash}, {"fileText", entity_encode(text)}}));
    }

private:
    httplib::Client http_;
};

// A vellument whose current status has the given copies (attributes as the document writes them).
std::string vellument(const std::vector<std::string>& copies, const std::string& older_copy = "")
{
    std::string text = "<AuditTrail Version=\"200\" FilingEIN=\"12-3456789\"><Transaction Action=\"Filing\">"
                       "<Package/><Status>" + older_copy + "</Status></Transaction><Transaction Action=\"None\">"
                       "<Package/><Status>";
    for (const std::string& c : copies)
        text += "<Copy " + c + " />";
    return text + "</Status></Transaction></AuditTrail>";
}

struct StatusCopy {
    std::string type, code, vlid, deleted, replaceable;
};

// The copies of a GetSubmissionStatus answer, and its EIN and Year.
std::vector<StatusCopy> status_copies(const std::string& document, std::string* ein = nullptr,
                                      std::string* year = nullptr)
{
    pugi::xml_document doc;
    EXPECT_TRUE(doc.load_string(document.c_str())) << document;
    const pugi::xml_node status = doc.child("SubmissionStatus");
    if (ein)
        *ein = status.attribute("EIN").value();
    if (year)
        *year = status.attribute("Year").value();
    std::vector<StatusCopy> copies;
    for (pugi::xml_node c : status.children("Copy"))
        copies.push_back({c.attribute("CopyType").value(), c.attribute("CopyCode").value(),
                          c.attribute("Vlid").value(), c.attribute("IsDeleted").value(),
                          c.attribute("IsReplaceable").value()});
    return copies;
}

std::vector<std::string> filing_args(const std::string& command, const Filing& f = Filing())
{
    return {command, "--ein", f.ein, "--form", f.form, "--year", f.year};
}

template <typename... More>
std::vector<std::string> with(std::vector<std::string> args, More... more)
{
    (args.push_back(more), ...);
    return args;
}

#define REQUIRE_SERVICE()                                                                                  \
    if (!FilingService::available())                                                                       \
    GTEST_SKIP() << "the filing service is not built"

TEST(FilingService, StoresAndAnswersTheFourOperations)
{
    REQUIRE_SERVICE();
    FilingService service;
    EXPECT_EQ(service.url(), "https://127.0.0.1:" + std::to_string(service.port()) + "/supportservices.asmx");
    Client client(service);

    for (const char* op : {"GetSubmissionStatus", "GetVellument", "GetVellumentHash"}) {
        const Reply r = client.call(op);
        ASSERT_TRUE(r.ok) << op;
        EXPECT_EQ(r.status, 200);
        EXPECT_EQ(r.answer, "NOTFOUND") << op;
    }

    // The text comes back as the client had it before its entity encoding, a literal entity
    // name included; the hash is kept as the client sent it.
    const std::string first = vellument({}) + "<!-- Caf\xE9 \x80 &eacute; <x> \"q\" 'a' -->";
    Reply stored = client.store(first, "hash-one");
    EXPECT_EQ(stored.status, 200);
    EXPECT_EQ(stored.answer, "1");
    const std::string second = vellument({}) + "\r\n<!-- Caf\xE9 2 -->\n";
    EXPECT_EQ(client.store(second, "hash-two").answer, "1");

    const Reply text = client.call("GetVellument");
    EXPECT_EQ(text.headers.count("Content-Encoding"), 0u);
    EXPECT_EQ(text.answer, vellument({}) + "\r\n<!-- Caf\xC3\xA9 2 -->\n");  // UTF-8 on the wire
    EXPECT_EQ(client.call("GetVellumentHash").answer, "hash-two");

    // Both versions are kept, with their times; the first one reads back with every character.
    const auto version = service.admin(with(filing_args("get"), "--version", "1"));
    EXPECT_EQ(version.code, 0) << version.err;
    EXPECT_EQ(version.out, vellument({}) + "<!-- Caf\xC3\xA9 \xE2\x82\xAC &eacute; <x> \"q\" 'a' -->");
    const auto info = service.admin(with(filing_args("get"), "--info"));
    EXPECT_NE(info.out.find("version 2 of 2"), std::string::npos) << info.out;
    EXPECT_NE(info.out.find("hash hash-two"), std::string::npos) << info.out;

    // A filing that the service knows but holds no copies of has a status document without Copy.
    std::string ein, year;
    EXPECT_TRUE(status_copies(client.call("GetSubmissionStatus").answer, &ein, &year).empty());
    EXPECT_EQ(ein, "123456789");
    EXPECT_EQ(year, "2025");

    // Another form of the same EIN is another filing.
    Filing other;
    other.form = "1099";
    EXPECT_EQ(client.call("GetVellumentHash", other).answer, "NOTFOUND");

    const std::string log = service.log();
    EXPECT_NE(log.find("StoreVellument ein=123456789 form=W2 year=2025 stored version 2"), std::string::npos) << log;
}

TEST(FilingService, TakesInEfiledCopiesOnceAndThenKeepsItsOwnRecord)
{
    REQUIRE_SERVICE();
    FilingService service;
    Client client(service);
    const std::vector<std::string> copies = {
        "Type=\"Federal\" Identifier=\"FE\" VLID=\"41\" Efiled=\"true\" Replaceable=\"true\" Deleted=\"false\"",
        "Type=\"State\" Identifier=\"MN\" VLID=\"42\" Efiled=\"1\" Replaceable=\"false\" Deleted=\"true\"",
        "Type=\"Local\" Identifier=\"L1\" VLID=\"43x\" Efiled=\"true\"",
        "Type=\"7\" Identifier=\"FE\" VLID=\"44\" Efiled=\"true\"",             // Recipient
        "Type=\"Employer\" Identifier=\"FE\" VLID=\"45\" Efiled=\"true\"",      // not kept
        "Type=\"Federal\" Identifier=\"PRINTED\" VLID=\"46\" Efiled=\"false\"", // not e-filed
    };
    // Only the current (last) transaction counts.
    const std::string older = "<Copy Type=\"Federal\" Identifier=\"OLD\" VLID=\"1\" Efiled=\"true\" />";
    ASSERT_EQ(client.store(vellument(copies, older), "h1").answer, "1");

    std::vector<StatusCopy> held = status_copies(client.call("GetSubmissionStatus").answer);
    ASSERT_EQ(held.size(), 4u);
    EXPECT_EQ(held[0].type + held[0].code + held[0].vlid + held[0].replaceable + held[0].deleted, "FEDFE41TrueFalse");
    EXPECT_EQ(held[1].type + held[1].code + held[1].vlid + held[1].replaceable + held[1].deleted, "STATEMN42FalseTrue");
    EXPECT_EQ(held[2].type + held[2].code + held[2].vlid, "LOCALL143");
    EXPECT_EQ(held[3].type + held[3].code + held[3].vlid, "EMPFE44");

    // The service's record wins over a later upload; the admin commands change it.
    EXPECT_EQ(service.admin(with(filing_args("set-copy"), "--type", "FED", "--code", "FE", "--vlid", "99",
                                 "--deleted", "true")).code,
              0);
    EXPECT_EQ(service.admin(with(filing_args("remove-copy"), "--type", "STATE", "--code", "MN")).code, 0);
    ASSERT_EQ(client.store(vellument(copies), "h2").answer, "1");
    held = status_copies(client.call("GetSubmissionStatus").answer);
    ASSERT_EQ(held.size(), 3u);  // the removed copy does not come back with the upload
    EXPECT_EQ(held[0].vlid + held[0].deleted + held[0].replaceable, "99TrueTrue");
    EXPECT_EQ(held[1].type, "LOCAL");

    // set-copy brings a removed copy back and adds new ones, also to a filing without a store.
    EXPECT_EQ(service.admin(with(filing_args("set-copy"), "--type", "STATE", "--code", "MN")).code, 0);
    Filing fresh;
    fresh.ein = "987654321";
    const auto added = service.admin(with(filing_args("set-copy", fresh), "--type", "EMP", "--code", "FE",
                                          "--replaceable", "yes"));
    EXPECT_EQ(added.out, "added EMP FE\n");
    held = status_copies(client.call("GetSubmissionStatus", fresh).answer);
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(held[0].vlid + held[0].replaceable, "0True");
    EXPECT_EQ(client.call("GetVellument", fresh).answer, "NOTFOUND");

    const auto listed = service.admin({"copies", "--format", "json"});
    ASSERT_EQ(listed.code, 0) << listed.err;
    const auto json = nlohmann::json::parse(listed.out);
    ASSERT_EQ(json.size(), 5u);
    EXPECT_EQ(json[0]["ein"], "123456789");
    EXPECT_EQ(json[0]["vlid"], 99);
    EXPECT_EQ(json[4]["ein"], "987654321");
    const auto text = service.admin({"copies", "--ein", "98-7654321"});
    EXPECT_EQ(text.out, "987654321 W2 2025 EMP FE vlid=0 replaceable=true deleted=false\n");

    const auto missing = service.admin(with(filing_args("remove-copy", fresh), "--type", "FED", "--code", "FE"));
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("holds no copy FED FE"), std::string::npos) << missing.err;
}

TEST(FilingService, PutAndGetWorkLikeAnotherWorkstation)
{
    REQUIRE_SERVICE();
    FilingService service;
    Client client(service);
    testutil::TempDir files;
    // A Windows-1252 file as the library writes it; its hash is that of its bytes.
    const std::string bytes = vellument({"Type=\"Federal\" Identifier=\"FE\" VLID=\"5\" Efiled=\"true\""}) +
                              "<!-- Caf\xE9 -->";
    testutil::write_file(files.file("in.VLM"), bytes);
    const auto put = service.admin(with(filing_args("put"), files.file("in.VLM")));
    ASSERT_EQ(put.code, 0) << put.err;
    EXPECT_EQ(client.call("GetVellumentHash").answer, vlmtest::md5_hex(bytes));
    EXPECT_NE(client.call("GetVellument").answer.find("<!-- Caf\xC3\xA9 -->"), std::string::npos);
    EXPECT_EQ(status_copies(client.call("GetSubmissionStatus").answer).size(), 1u);

    const auto got = service.admin(with(filing_args("get"), "-o", files.file("out.VLM")));
    ASSERT_EQ(got.code, 0) << got.err;
    std::string utf8 = bytes;
    utf8.replace(utf8.find('\xE9'), 1, "\xC3\xA9");
    EXPECT_EQ(testutil::read_file(files.file("out.VLM")), utf8);
}

TEST(FilingService, QueuedFaultsReplaceOrWrapTheReply)
{
    REQUIRE_SERVICE();
    FilingService service;
    Client client(service);
    ASSERT_EQ(client.store(vellument({}), "h").answer, "1");
    const auto fault = [&](const std::string& op, const std::string& kind, std::vector<std::string> more = {}) {
        std::vector<std::string> args = {"fault", "--op", op, "--kind", kind};
        args.insert(args.end(), more.begin(), more.end());
        const auto r = service.admin(args);
        ASSERT_EQ(r.code, 0) << r.err;
    };

    // Counted, per operation, oldest first; other operations are not touched.
    fault("GetVellumentHash", "system-error", {"--count", "2"});
    fault("any", "fault", {"--text", "Database offline"});
    EXPECT_EQ(client.call("GetVellument").fault, "Database offline");
    for (int i = 0; i < 2; ++i) {
        const Reply r = client.call("GetVellumentHash");
        EXPECT_EQ(r.status, 500);
        EXPECT_EQ(r.fault, "System error");
        EXPECT_EQ(r.answer, "");
    }
    EXPECT_EQ(client.call("GetVellumentHash").answer, "h");
    EXPECT_EQ(service.admin({"fault", "--list"}).out, "");

    fault("StoreVellument", "notfound");
    EXPECT_EQ(client.store(vellument({}), "h2").answer, "NOTFOUND");
    EXPECT_EQ(client.call("GetVellumentHash").answer, "h");  // the failed store stored nothing

    fault("GetVellument", "empty");
    Reply r = client.call("GetVellument");
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, "");

    // The normal answer, but under a prefix the client doesn't read.
    fault("GetVellumentHash", "soap-env");
    r = client.call("GetVellumentHash");
    EXPECT_EQ(r.answer, "");
    EXPECT_NE(r.body.find("<SOAP-ENV:Body><GetVellumentHashResponse"), std::string::npos) << r.body;
    EXPECT_NE(r.body.find("<hash>h</hash>"), std::string::npos) << r.body;

    fault("any", "html-500");
    r = client.call("GetSubmissionStatus");
    EXPECT_EQ(r.status, 500);
    EXPECT_EQ(r.body.rfind("<!DOCTYPE html>", 0), 0u) << r.body;
    EXPECT_EQ(r.headers.find("Content-Type")->second, "text/html; charset=utf-8");

    fault("any", "not-xml");
    r = client.call("GetSubmissionStatus");
    pugi::xml_document doc;
    EXPECT_EQ(r.status, 200);
    EXPECT_FALSE(doc.load_string(r.body.c_str()));

    fault("GetVellumentHash", "close");
    r = client.call("GetVellumentHash");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(client.call("GetVellumentHash").answer, "h");

    // The delivery faults still perform the operation.
    fault("StoreVellument", "delay", {"--ms", "300"});
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(client.store(vellument({}), "h3").answer, "1");
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(300));

    fault("GetVellumentHash", "gzip");
    r = client.call("GetVellumentHash");  // the client inflates it
    EXPECT_EQ(r.headers.find("Content-Encoding")->second, "gzip");
    EXPECT_EQ(r.answer, "h3");

    fault("GetVellument", "chunked");
    r = client.call("GetVellument");
    EXPECT_EQ(r.headers.find("Transfer-Encoding")->second, "chunked");
    EXPECT_EQ(r.headers.count("Content-Encoding"), 0u);  // though the client accepts gzip
    EXPECT_EQ(r.answer, vellument({}));

    const std::string log = service.log();
    for (const char* kind : {"system-error", "fault", "notfound", "empty", "soap-env", "html-500", "not-xml",
                             "close", "delay", "gzip", "chunked"})
        EXPECT_NE(log.find(std::string("injected ") + kind), std::string::npos) << kind;

    // Bad fault commands are usage errors; --clear empties the queue.
    EXPECT_EQ(service.admin({"fault", "--kind", "explode"}).code, 2);
    EXPECT_EQ(service.admin({"fault", "--kind", "delay"}).code, 2);
    fault("any", "close", {"--count", "5"});
    EXPECT_EQ(service.admin({"fault", "--clear"}).out, "cleared 1 faults\n");
    EXPECT_EQ(client.call("GetVellumentHash").answer, "h3");
}

TEST(FilingService, BadRequestsGetFaultsAndTheServerLivesOn)
{
    REQUIRE_SERVICE();
    FilingService service({"--max-body", "100000", "--read-timeout-ms", "300"});
    Client client(service);
    const auto params = [](const std::string& key) {
        return std::vector<std::pair<std::string, std::string>>{
            {"accessKey", key}, {"ein", "1"}, {"formName", "W2"}, {"year", "2025"}};
    };
    struct Case {
        std::string name, op, body, action, fault;
    };
    const std::vector<Case> cases = {
        {"not XML", "GetVellument", "this is <not xml", "", "The request is not XML"},
        {"not SOAP", "GetVellument", "<a><b/></a>", "", "The request is not a SOAP envelope"},
        {"unknown operation", "DeleteVellument", envelope("DeleteVellument", params(kAccessKey)), "",
         "Unknown operation \"DeleteVellument\""},
        {"wrong access key", "GetVellument", envelope("GetVellument", params("AAAAA-BBBBB-CCCCC-DDDDD-EEEEE")), "",
         "Invalid access key"},
        {"missing parameter", "StoreVellument", envelope("StoreVellument", params(kAccessKey)), "",
         "Missing parameter \"hash\""},
        {"SOAPAction of another operation", "GetVellument", envelope("GetVellument", params(kAccessKey)),
         std::string(kNamespace) + "GetVellumentHash", "The SOAPAction header does not name"},
        // An ampersand in a form name goes out raw and spoils the envelope.
        {"raw ampersand", "GetVellument", envelope("GetVellument", {{"accessKey", kAccessKey}, {"formName", "A&B"}}),
         "", "The request is not XML"},
    };
    for (const Case& c : cases) {
        const Reply r = client.post(c.op, c.body, c.action);
        ASSERT_TRUE(r.ok) << c.name;
        EXPECT_EQ(r.status, 500) << c.name;
        EXPECT_EQ(r.fault.rfind(c.fault, 0), 0u) << c.name << ": " << r.fault;
    }

    // A body that trickles in is cut off when the whole request has taken too long, though each
    // byte comes well within the read time-out.
    {
        FilingService strict({"--request-timeout-ms", "400"});
        httplib::Client slow("https://127.0.0.1:" + std::to_string(strict.port()));
        slow.enable_server_certificate_verification(false);
        const auto trickle = slow.Post(
            "/supportservices.asmx", {{"SOAPAction", std::string(kNamespace) + "GetVellument"}}, 200,
            [](size_t offset, size_t, httplib::DataSink& sink) {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                sink.write(" ", 1);
                return offset < 200;
            },
            "text/xml");
        EXPECT_TRUE(!trickle || trickle->status == 408);
        EXPECT_NE(strict.log().find("took too long"), std::string::npos) << strict.log();
    }

    // A body over the limit is refused without being read.
    const Reply big = client.post("StoreVellument", std::string(300000, 'x'));
    EXPECT_TRUE(!big.ok || big.status == 413) << big.status;

    // A client that connects and sends nothing is cut off after the read time-out.
    const int sock = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(service.port()));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(sock, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    timeval limit{30, 0};
    setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    char byte;
    EXPECT_LE(recv(sock, &byte, 1, 0), 0);  // closed by the server, long before our 30 s
    close(sock);

    EXPECT_EQ(client.call("GetVellument").answer, "NOTFOUND");
}

TEST(FilingService, KeepsItsDataOverARestartAndTwoServersKeepTheirOwn)
{
    REQUIRE_SERVICE();
    {
        // Stopped as soon as it said where it listens: it ends at once and cleanly.
        FilingService quick;
        EXPECT_EQ(quick.stop(), 0);
    }
    FilingService one;
    FilingService two({"--plain-http"});
    EXPECT_EQ(two.url().rfind("http://127.0.0.1:", 0), 0u);
    EXPECT_NE(one.port(), two.port());
    {
        Client a(one);
        ASSERT_EQ(a.store(vellument({"Type=\"Federal\" Identifier=\"FE\" VLID=\"3\" Efiled=\"true\""}), "kept")
                      .answer,
                  "1");
    }
    httplib::Client plain("http://127.0.0.1:" + std::to_string(two.port()));
    const auto plain_hash = [&] {
        return plain.Post("/supportservices.asmx", {{"SOAPAction", std::string(kNamespace) + "GetVellumentHash"}},
                          envelope("GetVellumentHash", {{"accessKey", kAccessKey}, {"ein", "123456789"},
                                                        {"formName", "W2"}, {"year", "2025"}}),
                          "text/xml; charset=utf-8");
    };
    auto res = plain_hash();
    ASSERT_TRUE(res);
    EXPECT_NE(res->body.find("<hash>NOTFOUND</hash>"), std::string::npos) << res->body;
    // The plain server finds the connection to close without TLS to ask.
    ASSERT_EQ(two.admin({"fault", "--kind", "close"}).code, 0);
    EXPECT_FALSE(plain_hash());

    const std::string cert = testutil::read_file(one.data_dir() + "/service-cert.pem");
    EXPECT_EQ(one.stop(), 0);
    one.start();
    EXPECT_EQ(testutil::read_file(one.data_dir() + "/service-cert.pem"), cert);  // reused
    {
        Client again(one);
        EXPECT_EQ(again.call("GetVellumentHash").answer, "kept");
        EXPECT_EQ(status_copies(again.call("GetSubmissionStatus").answer).size(), 1u);
        // What was acknowledged survives a killed server too.
        ASSERT_EQ(again.store(vellument({}), "acknowledged").answer, "1");
    }
    one.stop(SIGKILL);
    one.start();
    EXPECT_EQ(Client(one).call("GetVellumentHash").answer, "acknowledged");
}

TEST(FilingService, CommandLineFollowsTheToolConventions)
{
    REQUIRE_SERVICE();
    FilingService service;
    for (const char* command : {"serve", "copies", "set-copy", "remove-copy", "put", "get", "fault"}) {
        const auto help = service.run({command, "--help"});
        EXPECT_EQ(help.code, 0) << command;
        EXPECT_NE(help.out.find("--data"), std::string::npos) << command;
    }
    const auto unknown = service.run({"frobnicate"});
    EXPECT_EQ(unknown.code, 2);
    EXPECT_EQ(unknown.err, "vellument-filing-service: unknown command \"frobnicate\" (see vellument-filing-service "
                           "--help)\n");
    EXPECT_EQ(service.run({"copies"}).code, 2);  // --data missing
    const auto no_dir = service.run({"copies", "--data", service.data_dir() + "/nowhere"});
    EXPECT_EQ(no_dir.code, 1);
    EXPECT_EQ(no_dir.err, "vellument-filing-service: no data directory " + service.data_dir() + "/nowhere\n");
    const auto remote = service.run({"serve", "--data", service.data_dir(), "--listen", "192.0.2.1:0"});
    EXPECT_EQ(remote.code, 1);
    EXPECT_NE(remote.err.find("not a loopback address"), std::string::npos) << remote.err;
    EXPECT_EQ(service.admin(with(filing_args("set-copy"), "--type", "FED", "--code", "FE", "--deleted", "maybe")).code,
              2);
}

} // namespace
