// The filing service client against a scripted HTTPS server: the requests byte for byte, the
// reply shapes that the stand-in service never makes, and the choice of server.

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CStatus.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/eFileSOAPS.h>

#include "Vellument/eFileSOAPS_wire.h"
#include "http_script_server.h"
#include "soap_test_util.h"

using httptest::ScriptServer;

namespace {

httptest::ServerOptions tls()
{
    httptest::ServerOptions options;
    options.tls = true;
    options.certName = "127.0.0.1";
    return options;
}

std::string body_of(const httptest::Request& request)
{
    const std::size_t end = request.bytes.find("\r\n\r\n");
    return end == std::string::npos ? std::string() : request.bytes.substr(end + 4);
}

std::string head_of(const httptest::Request& request)
{
    return request.bytes.substr(0, request.bytes.find("\r\n\r\n") + 2);
}

std::string expected_request(const std::string& operation, const std::string& parameters)
{
    using soaptest::parameter;
    return soaptest::request(service_namespace, operation,
                             parameter("accessKey", "QXTR4-LMZ82-HBVNC-WPJK6-3DGAF") + parameter("ein", "123456789") +
                                 parameter("formName", "W-2 & <1099>") + parameter("year", "2024") + parameters);
}

std::string status_reply(const std::string& document)
{
    return soaptest::http(soaptest::answer("GetSubmissionStatus", "response", soaptest::escaped(document)));
}

} // namespace

TEST(SoapWire, RequestsGoOutByteForByte)
{
    testutil::TempDir dir;
    // A comment, a declaration, an entity and a Windows-1252 letter: the upload is the re-emitted
    // tree, entity-encoded, never the file's bytes.
    const std::string file = dir.file("v.VLM");
    testutil::write_file(file, "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\r\n<!-- kept out -->\r\n"
                               "<AuditTrail Note=\"a&amp;b\"><T>caf\xE9 &lt;1&gt;</T></AuditTrail>\r\n");
    const std::string empty = soaptest::http(soaptest::envelope(""));
    ScriptServer server({empty, empty, empty, empty}, tls());
    soaptest::point_at(server.url("/supportservices.asmx"));

    const char* ein = " 12-345 6789-";
    const char* form = "W-2 & <1099>";
    int error = 0;
    eFileSOAPS client;
    delete client.get_filing(ein, form, "2024", error);
    eFileSOAPS::StoreVellument(ein, form, "2024", "0123abcd", file.c_str(), error);
    eFileSOAPS::GetVellument(ein, form, "2024", error);
    eFileSOAPS::get_vellument_hash(ein, form, "2024", error);

    const std::vector<httptest::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    const char* operations[] = {"GetSubmissionStatus", "StoreVellument", "GetVellument", "GetVellumentHash"};
    const std::string upload = "<m:hash xsi:type=\"xsd:string\">0123abcd</m:hash>"
                               "<m:fileText xsi:type=\"xsd:string\">&lt;AuditTrail Note=&quot;a&amp;amp;b&quot;&gt;"
                               "\r\n    &lt;T&gt;caf&eacute; &amp;lt;1&amp;gt;&lt;/T&gt;\r\n&lt;/AuditTrail&gt;\r\n"
                               "</m:fileText>";
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(operations[i]);
        const std::string body = expected_request(operations[i], i == 1 ? upload : "");
        EXPECT_EQ(body_of(requests[i]), body);
        const std::string head = head_of(requests[i]);
        EXPECT_EQ(head.rfind("POST /supportservices.asmx HTTP/1.1\r\n", 0), 0u) << head;
        EXPECT_NE(head.find("\r\nSOAPAction: " + std::string(service_namespace) + operations[i] + "\r\n"),
                  std::string::npos)
            << head;
        EXPECT_NE(head.find("\r\nContent-Type: text/xml; charset=utf-8\r\n"), std::string::npos) << head;
        EXPECT_NE(head.find("\r\nContent-Length: " + std::to_string(body.size()) + "\r\n"), std::string::npos);
        // One client per request: each came on its own connection.
        EXPECT_EQ(requests[i].connection, i + 1);
    }
}

TEST(SoapWire, StatusRepliesGiveTheirCodes)
{
    int parse_code = 0;
    char message[256] = {};
    EXPECT_EQ(COXMLDocument::loadXML("<SubmissionStatus", &parse_code, message, sizeof message), nullptr);
    ASSERT_NE(parse_code, 0);

    const std::string good = "<SubmissionStatus EIN=\"123456789\" Year=\"2024\"><Copy CopyType=\"FED\"/>"
                             "</SubmissionStatus>";
    struct Case {
        const char* name;
        std::string reply;
        int error;
        int copies;
    };
    const std::vector<Case> cases = {
        {"good", status_reply(good), 0, 1},
        {"EIN with its hyphen", status_reply("<SubmissionStatus EIN=\"12-3456789\" Year=\"2024\"><Copy "
                                             "CopyType=\"FED\"/></SubmissionStatus>"),
         11, 0},
        {"year with a trailing blank", status_reply("<SubmissionStatus EIN=\"123456789\" Year=\"2024 \"/>"), 12, 0},
        {"no SubmissionStatus", status_reply("<Status EIN=\"123456789\" Year=\"2024\"><Copy/></Status>"), 10, 0},
        {"no Copy", status_reply("<SubmissionStatus EIN=\"123456789\" Year=\"2024\"/>"), 13, 0},
        {"only a copy of another type", status_reply("<SubmissionStatus EIN=\"123456789\" Year=\"2024\">"
                                                     "<Copy CopyType=\"EMPLOYER\" Vlid=\"3\"/></SubmissionStatus>"),
         0, 0},
        {"not XML: the document goes", status_reply("<SubmissionStatus"), parse_code, 0},
        {"good again", status_reply(good), 0, 1},
    };
    std::vector<std::string> replies;
    for (const Case& c : cases)
        replies.push_back(c.reply);
    ScriptServer server(replies, tls());
    soaptest::point_at(server.url("/supportservices.asmx"));

    // One object for all: each call replaces or keeps the document of the one before.
    eFileSOAPS client;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int error = -1;
        std::unique_ptr<CStatus> status(client.get_filing("12-3456789", "W2", "2024", error));
        ASSERT_NE(status, nullptr);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(status->get_copy_count(), c.copies);
    }
    // GetFiling drops the code: the server has no replies left, and a status still comes back.
    std::unique_ptr<CStatus> status(client.GetFiling("123456789", "W2", "2024"));
    ASSERT_NE(status, nullptr);
    EXPECT_EQ(status->get_copy_count(), 0);
}

TEST(SoapWire, CopiesAreGroupedByTypeAndMapped)
{
    const std::string document =
        "<?xml version=\"1.0\"?><SubmissionStatus EIN=\"123456789\" Year=\"2024\">"
        "<Copy CopyType=\"EMP\" Vlid=\"5\" CopyCode=\"FE\" IsDeleted=\"False\" IsReplaceable=\"False\"/>"
        "<Copy CopyType=\"STATE\" Vlid=\" 1 \" CopyCode=\"NY\" IsDeleted=\"1\" IsReplaceable=\"true\"/>"
        "<Copy CopyType=\"FED\" Vlid=\"12ab\" CopyCode=\"FE\" IsDeleted=\"tRuE\" IsReplaceable=\"TRUE\"/>"
        "<Group><Copy CopyType=\"LOCAL\" CopyCode=\"NYC\" IsDeleted=\"yes\"/></Group>"
        "<Copy CopyType=\"STATE\" Vlid=\"-4\" CopyCode=\"NJ\"/>"
        "<Copy CopyType=\"fed\" Vlid=\"9\" CopyCode=\"lower\"/>"
        "<Copy CopyType=\"FED\" Vlid=\"99999999999\" CopyCode=\"&amp;2\"/>"
        "</SubmissionStatus>";
    ScriptServer server({status_reply(document)}, tls());
    soaptest::point_at(server.url("/supportservices.asmx"));

    int error = -1;
    eFileSOAPS client;
    std::unique_ptr<CStatus> status(client.get_filing("123456789", "W2", "2024", error));
    EXPECT_EQ(error, 0);
    struct Expected {
        Vellument::FILING_TYPE type;
        int vlid;
        const char* code;
        bool deleted;
        bool replaceable;
    };
    const Expected expected[] = {
        {Vellument::FILING_TYPE_FEDERAL, 12, "FE", true, true},
        {Vellument::FILING_TYPE_FEDERAL, 2147483647, "&2", false, false},
        {Vellument::FILING_TYPE_STATE, 1, "NY", false, true},
        {Vellument::FILING_TYPE_STATE, -4, "NJ", false, false},
        {Vellument::FILING_TYPE_LOCAL, 0, "NYC", false, false},
        {Vellument::FILING_TYPE_EMPLOYEE, 5, "FE", false, false},
    };
    ASSERT_EQ(status->get_copy_count(), 6);
    for (int i = 0; i < 6; ++i) {
        SCOPED_TRACE(i);
        const CCopy* copy = status->get_copy_at(i);
        EXPECT_EQ(copy->get_type(), expected[i].type);
        EXPECT_EQ(copy->get_vlid(), expected[i].vlid);
        EXPECT_EQ(copy->get_identifier(), expected[i].code);
        EXPECT_EQ(copy->get_deleted_flag(), expected[i].deleted);
        EXPECT_EQ(copy->get_replaceable_flag(), expected[i].replaceable);
        EXPECT_EQ(copy->get_history_count(), 0);
        EXPECT_FALSE(copy->get_efiled_flag());
    }
}

TEST(SoapWire, FileRepliesGiveTheirCodes)
{
    testutil::TempDir dir;
    const std::string file = dir.file("v.VLM");
    testutil::write_file(file, "<AuditTrail/>");
    const std::string notfound24 = "The item is NOTFOUND !!.";
    const std::string notfound25 = "The item is NOTFOUND !!..";
    ASSERT_EQ(notfound24.size(), 24u);

    enum Op { STORE, GET, HASH };
    struct Case {
        const char* name;
        Op op;
        std::string reply;
        int error;          // the code after the call, with 99 preset
        std::string text;   // the result of GetVellument and get_vellument_hash
    };
    const std::vector<Case> cases = {
        {"store 1", STORE, soaptest::http(soaptest::answer("StoreVellument", "response", "1")), 0, ""},
        {"store 1 with blanks", STORE, soaptest::http(soaptest::answer("StoreVellument", "response", " \r\n1\t ")), 0,
         ""},
        {"store true", STORE, soaptest::http(soaptest::answer("StoreVellument", "response", "true")), 25, ""},
        {"get text", GET, soaptest::http(soaptest::answer("GetVellument", "fileText", "&lt;AuditTrail/&gt;")), 0,
         "<AuditTrail/>"},
        {"get 24 NOTFOUND", GET, soaptest::http(soaptest::answer("GetVellument", "fileText", notfound24)), 23, ""},
        {"get 25 NOTFOUND", GET, soaptest::http(soaptest::answer("GetVellument", "fileText", notfound25)), 0,
         notfound25},
        {"hash", HASH, soaptest::http(soaptest::answer("GetVellumentHash", "hash", "0cc175b9")), 0, "0cc175b9"},
        {"hash NOTFOUND in a long text", HASH,
         soaptest::http(soaptest::answer("GetVellumentHash", "hash", notfound25 + notfound25)), 22, ""},
    };
    std::vector<std::string> replies;
    for (const Case& c : cases)
        replies.push_back(c.reply);
    ScriptServer server(replies, tls());
    soaptest::point_at(server.url("/supportservices.asmx"));

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int error = 99;
        std::string text;
        if (c.op == STORE)
            eFileSOAPS::StoreVellument("123456789", "W2", "2024", "abc", file.c_str(), error);
        else if (c.op == GET)
            text = eFileSOAPS::GetVellument("123456789", "W2", "2024", error);
        else
            text = eFileSOAPS::get_vellument_hash("123456789", "W2", "2024", error);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(text, c.text);
    }
    EXPECT_EQ(server.requests().size(), cases.size());
}

TEST(SoapWire, ServerChoiceFollowsTheSettingsFileAtEachRequest)
{
    ScriptServer first({soaptest::http(soaptest::answer("GetVellumentHash", "hash", "first"))}, tls());
    ScriptServer second({soaptest::http(soaptest::answer("GetVellumentHash", "hash", "second"))}, tls());
    int error = 99;
    soaptest::point_at(first.url("/supportservices.asmx"));
    EXPECT_EQ(eFileSOAPS::get_vellument_hash("1", "W2", "2024", error), "first");
    soaptest::point_at(second.url("/supportservices.asmx"));
    EXPECT_EQ(eFileSOAPS::get_vellument_hash("1", "W2", "2024", error), "second");
    EXPECT_EQ(first.requests().size(), 1u);
    EXPECT_EQ(second.requests().size(), 1u);

    // An address that is no URL fails in the exchange: a transport failure leaves the code.
    soaptest::write_settings("[DEBUG]\r\nTestMode=Y\r\nW2StatusServerAddress=not a url\r\n");
    error = 99;
    EXPECT_EQ(eFileSOAPS::get_vellument_hash("1", "W2", "2024", error), "");
    EXPECT_EQ(error, 99);

    // The rows that lead off this machine are read from the choice itself, never sent.
    const std::string production = status_server_url;
    const std::string test = status_test_server_url;
    const std::string efile = efile_host_name;
    std::string upper = efile;
    for (char& c : upper)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    struct Case {
        std::string settings;  // empty: no file
        std::string url;
    };
    const std::vector<Case> cases = {
        {"", production},
        {"[DEBUG]\r\nW2StatusServerAddress=https://127.0.0.1:1/x\r\n", production},
        {"[DEBUG]\r\nTestMode=y\r\nW2StatusServerAddress=https://127.0.0.1:1/x\r\n", production},
        {"[DEBUG]\r\nTestMode=Yes\r\n", production},
        {"[debug]\r\ntestmode=Y\r\nW2StatusServerAddress=whatever it is\r\n", "whatever it is"},
        {"[DEBUG]\r\nTestMode=Y\r\n", test},
        {"[DEBUG]\r\nTestMode=Y\r\nW2StatusServerAddress=\r\nEfileServerAddress=https://" + efile + "/x\r\n",
         production},
        {"[DEBUG]\r\nTestMode=Y\r\nEfileServerAddress=https://" + upper + "/x\r\n", test},
        {"[DEBUG]\r\nTestMode=Y\r\nEfileServerAddress=https://efile-test.example/\r\n", test},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.settings);
        std::remove((soaptest::appdata() + "/Settings.ini").c_str());
        if (!c.settings.empty())
            soaptest::write_settings(c.settings);
        EXPECT_EQ(get_service_url(), c.url);
    }
}
