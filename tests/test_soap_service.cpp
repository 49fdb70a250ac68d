// The filing service client against the stand-in filing service over HTTPS: the round trips,
// every fault the service can be told to make, and a server that isn't there.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CStatus.h>
#include <vellument/CkXml.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/eFileSOAPS.h>

#include "log_capture.h"
#include "loopback_settings.h"
#include "filing_service_fixture.h"
#include "soap_test_util.h"

namespace {

// Two copies e-filed in the current status, one not: the service takes in the first two.
const char kVellument[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<AuditTrail Version=\"350\" FormType=\"W-2_SSA\" FilingYear=\"2024\" FilingEIN=\"12-3456789\">\r\n"
    "  <Transaction Action=\"Filing\">\r\n"
    "    <Status>\r\n"
    "      <Copy Type=\"State\" Identifier=\"NY\" VLID=\"42\" Efiled=\"true\" Deleted=\"true\"/>\r\n"
    "      <Copy Type=\"Federal\" Identifier=\"FE\" VLID=\"41\" Efiled=\"true\" Replaceable=\"true\"/>\r\n"
    "      <Copy Type=\"Local\" Identifier=\"NYC\" VLID=\"43\" Efiled=\"false\"/>\r\n"
    "    </Status>\r\n"
    "  </Transaction>\r\n"
    "</AuditTrail>\r\n";
const char kHash[] = "5d41402abc4b2a76b9719d911017c592";

// A vellument text with its line ends made comparable: how CR travels through the service (raw,
// normalised away by its XML parser, or as a character reference that the reply reader leaves
// as it stands) is the service's business, and the reply reader cuts white space at the end.
std::string without_line_ends(std::string text)
{
    for (std::size_t at; (at = text.find("&#13;")) != std::string::npos;)
        text.erase(at, 5);
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// What comes back after an upload: the file's tree as the toolkit writes it.
std::string emitted(const std::string& path)
{
    CkXml xml;
    xml.put_EmitDeclaration(false);
    EXPECT_TRUE(xml.LoadXmlFile(path.c_str()));
    return without_line_ends(xml.GetXml());
}

int parse_code_of(const char* text)
{
    int code = 0;
    char message[256] = {};
    delete COXMLDocument::loadXML(text, &code, message, sizeof message);
    return code;
}

// The four operations once each, with every code preset to 99.
struct Outcome {
    int status_error = 99;
    int copies = 0;
    int store_error = 99;
    int get_error = 99;
    std::string text;
    int hash_error = 99;
    std::string hash;
};

Outcome run_all(const char* ein, const std::string& file)
{
    Outcome o;
    eFileSOAPS client;
    std::unique_ptr<CStatus> status(client.get_filing(ein, "W2", "2024", o.status_error));
    o.copies = status ? status->get_copy_count() : -1;
    eFileSOAPS::StoreVellument(ein, "W2", "2024", kHash, file.c_str(), o.store_error);
    o.text = eFileSOAPS::GetVellument(ein, "W2", "2024", o.get_error);
    o.hash = eFileSOAPS::get_vellument_hash(ein, "W2", "2024", o.hash_error);
    return o;
}

class SoapService : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (vlmtest::FilingService::available())
            service_ = new vlmtest::FilingService();
    }
    static void TearDownTestSuite()
    {
        delete service_;
        service_ = nullptr;
    }
    void SetUp() override
    {
        if (service_ == nullptr)
            GTEST_SKIP() << "the stand-in filing service was not built";
        service_->write_settings(soaptest::appdata());
        file_ = dir_.file("VELLUMENT_W2_2024.VLM");
        testutil::write_file(file_, kVellument);
    }

    static vlmtest::FilingService* service_;
    testutil::TempDir dir_;
    std::string file_;
};

vlmtest::FilingService* SoapService::service_ = nullptr;

} // namespace

TEST_F(SoapService, StoreHashGetAndStatusRoundTrip)
{
    // Nothing stored yet for this filer.
    const Outcome before = [&] {
        Outcome o;
        eFileSOAPS client;
        std::unique_ptr<CStatus> status(client.get_filing("98-7654321", "W2", "2024", o.status_error));
        o.copies = status->get_copy_count();
        o.text = eFileSOAPS::GetVellument("98-7654321", "W2", "2024", o.get_error);
        o.hash = eFileSOAPS::get_vellument_hash("98-7654321", "W2", "2024", o.hash_error);
        return o;
    }();
    EXPECT_EQ(before.status_error, parse_code_of("NOTFOUND"));
    EXPECT_EQ(before.copies, 0);
    EXPECT_EQ(before.get_error, 23);
    EXPECT_EQ(before.text, "");
    EXPECT_EQ(before.hash_error, 22);
    EXPECT_EQ(before.hash, "");

    int error = 99;
    eFileSOAPS::StoreVellument("12-3456789", "W2", "2024", kHash, file_.c_str(), error);
    EXPECT_EQ(error, 0);
    error = 99;
    EXPECT_EQ(eFileSOAPS::get_vellument_hash("12-345 6789", "W2", "2024", error), kHash);
    EXPECT_EQ(error, 0);
    error = 99;
    EXPECT_EQ(without_line_ends(eFileSOAPS::GetVellument("123456789", "W2", "2024", error)), emitted(file_));
    EXPECT_EQ(error, 0);

    // The e-filed copies come back, federal before state.
    error = 99;
    eFileSOAPS client;
    std::unique_ptr<CStatus> status(client.get_filing("12-3456789", "W2", "2024", error));
    EXPECT_EQ(error, 0);
    ASSERT_EQ(status->get_copy_count(), 2);
    const CCopy* fed = status->get_copy_at(0);
    EXPECT_EQ(fed->get_type(), Vellument::FILING_TYPE_FEDERAL);
    EXPECT_EQ(fed->get_identifier(), "FE");
    EXPECT_EQ(fed->get_vlid(), 41);
    EXPECT_TRUE(fed->get_replaceable_flag());
    EXPECT_FALSE(fed->get_deleted_flag());
    const CCopy* state = status->get_copy_at(1);
    EXPECT_EQ(state->get_type(), Vellument::FILING_TYPE_STATE);
    EXPECT_EQ(state->get_identifier(), "NY");
    EXPECT_EQ(state->get_vlid(), 42);
    EXPECT_TRUE(state->get_deleted_flag());
    // Another year is another vellument.
    error = 99;
    EXPECT_EQ(eFileSOAPS::get_vellument_hash("12-3456789", "W2", "2023", error), "");
    EXPECT_EQ(error, 22);
}

TEST_F(SoapService, EveryFaultKindGivesTheCodesOfItsKind)
{
    const char* ein = "555555555";
    int error = 99;
    eFileSOAPS::StoreVellument(ein, "W2", "2024", kHash, file_.c_str(), error);
    ASSERT_EQ(error, 0);
    const std::string text = emitted(file_);

    struct Case {
        const char* kind;
        Outcome expected;
    };
    const int notfound = parse_code_of("NOTFOUND");
    // status code, copies, store code, get code, text, hash code, hash
    const std::vector<Case> cases = {
        {"system-error", {1, 0, 1, 0, "", 0, ""}},
        {"fault", {3, 0, 99, 0, "", 0, ""}},
        {"notfound", {notfound, 0, 25, 23, "", 22, ""}},
        {"empty", {2, 0, 2, 0, "", 0, ""}},
        {"html-500", {2, 0, 2, 0, "", 0, ""}},
        {"not-xml", {2, 0, 2, 0, "", 0, ""}},
        {"soap-env", {2, 0, 2, 0, "", 0, ""}},
        // No reply at all: the transport row.
        {"close", {2, 0, 99, 99, "", 99, ""}},
        // Only the way the reply travels changes.
        {"gzip", {0, 2, 0, 0, text, 0, kHash}},
        {"chunked", {0, 2, 0, 0, text, 0, kHash}},
        {"delay", {0, 2, 0, 0, text, 0, kHash}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.kind);
        const vlmtest::FilingService::Result queued =
            service_->admin({"fault", "--op", "any", "--kind", c.kind, "--count", "4", "--ms", "20"});
        ASSERT_EQ(queued.code, 0) << queued.err;
        const Outcome o = run_all(ein, file_);
        EXPECT_EQ(o.status_error, c.expected.status_error);
        EXPECT_EQ(o.copies, c.expected.copies);
        EXPECT_EQ(o.store_error, c.expected.store_error);
        EXPECT_EQ(o.get_error, c.expected.get_error);
        EXPECT_EQ(without_line_ends(o.text), c.expected.text);
        EXPECT_EQ(o.hash_error, c.expected.hash_error);
        EXPECT_EQ(o.hash, c.expected.hash);
    }
    EXPECT_EQ(service_->admin({"fault", "--list"}).out, "");
}

TEST_F(SoapService, AServerThatIsNotThereLeavesTheCodesAndIsLogged)
{
    // A loopback port with no listener.
    soaptest::point_at(loopback::service_url(loopback::refusing_port()));

    vlmtest::LogCapture log;
    const Outcome o = run_all("123456789", file_);
    EXPECT_EQ(o.status_error, 2);
    EXPECT_EQ(o.copies, 0);
    EXPECT_EQ(o.store_error, 99);
    EXPECT_EQ(o.get_error, 99);
    EXPECT_EQ(o.text, "");
    EXPECT_EQ(o.hash_error, 99);
    EXPECT_EQ(o.hash, "");
    EXPECT_TRUE(log.has(3, "[eFileSOAPS] Fault String = "));
    EXPECT_TRUE(log.has(3, "[EfileSoaps] Loaded vellument " + file_));

    int error = 99;
    eFileSOAPS::StoreVellument("123456789", "W2", "2024", kHash, dir_.file("missing.VLM").c_str(), error);
    EXPECT_EQ(error, 20);
    EXPECT_TRUE(log.has(3, "[EfileSoaps] Unable to load xml file " + dir_.file("missing.VLM")));
    EXPECT_TRUE(log.has(3, "[EfileSoaps] Xml Error "));
}
