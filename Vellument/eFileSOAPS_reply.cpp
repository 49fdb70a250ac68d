// Reading the filing service's replies: the SOAP body through the toolkit tree, the status
// document through the document interface.

#include "Vellument/eFileSOAPS_reply.h"

#include <cstring>
#include <strings.h>

#include <vellument/AuditUtil.h>
#include <vellument/CCopy.h>
#include <vellument/CStatus.h>
#include <vellument/CkXml.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/VellumentTypes.h>

namespace SoapReply {

namespace {

const char kStatusPath[] = "soap:Body|GetSubmissionStatusResponse|response";
const char kStorePath[] = "soap:Body|StoreVellumentResponse|response";
const char kVellumentPath[] = "soap:Body|GetVellumentResponse|fileText";
const char kHashPath[] = "soap:Body|GetVellumentHashResponse|hash";
const char kFaultPath[] = "soap:Body|soap:Fault|faultstring";

const char kSystemError[] = "System error";
const char kNotFound[] = "NOTFOUND";
// A vellument text this short that says NOTFOUND is the service's "nothing stored"; a longer
// one is a document that happens to hold the word.
const std::size_t kNotFoundMaxLength = 25;

// One reply body, parsed once. A body that isn't XML leaves the tree empty, so every path reads
// as empty; the load's result tells nothing more and is not looked at.
class Reply {
public:
    explicit Reply(const char* body) { m_xml.LoadXml(body != nullptr ? body : ""); }
    std::string get(const char* path)
    {
        return Ostrel::Format::TextOf(m_xml.GetChildContent(path));
    }

private:
    CkXml m_xml;
};

bool contains(const std::string& text, const char* word)
{
    return text.find(word) != std::string::npos;
}

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string trimmed(const std::string& text)
{
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && is_blank(text[begin]))
        ++begin;
    while (end > begin && is_blank(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

bool is_true(const char* text)
{
    return Ostrel::Format::EqualsNoCaseAscii(Ostrel::Format::TextOf(text), "True");
}

const char* copy_type_xpath(int type)
{
    switch (type) {
    case Vellument::FILING_TYPE_FEDERAL:
        return "//Copy[@CopyType='FED']";
    case Vellument::FILING_TYPE_STATE:
        return "//Copy[@CopyType='STATE']";
    case Vellument::FILING_TYPE_LOCAL:
        return "//Copy[@CopyType='LOCAL']";
    case Vellument::FILING_TYPE_EMPLOYEE:
        return "//Copy[@CopyType='EMP']";
    default:
        return nullptr;
    }
}

} // namespace

const int kCopyTypeOrder[4] = {Vellument::FILING_TYPE_FEDERAL, Vellument::FILING_TYPE_STATE,
                               Vellument::FILING_TYPE_LOCAL, Vellument::FILING_TYPE_EMPLOYEE};

int classify_fault(const std::string& fault, int error)
{
    if (contains(fault, kSystemError))
        return FILE_SYSTEM_ERROR;
    if (fault.empty())
        return FILE_NO_ANSWER;
    return error;
}

std::string read_status_reply(const char* body, std::string& fault)
{
    Reply reply(body);
    std::string text = reply.get(kStatusPath);
    if (text.empty())
        fault = reply.get(kFaultPath);
    return text;
}

int status_failure_code(const std::string& fault)
{
    return classify_fault(fault, STATUS_OTHER_FAULT);
}

int read_status_document(const std::string& text, const std::string& ein, const char* year, COXMLDocument*& document,
                         std::shared_ptr<COXMLNodeList>& copy_nodes)
{
    int code = 0;
    char message[256] = {};
    COXMLDocument* parsed = COXMLDocument::loadXML(text.c_str(), &code, message, sizeof message);
    // The node list points into the old document: let it go first.
    copy_nodes.reset();
    delete document;
    document = parsed;
    if (document == nullptr)
        return code;

    COXMLNode* submission = document->selectSingleNode("//SubmissionStatus");
    if (submission == nullptr)
        return STATUS_NO_SUBMISSION;
    if (ein != submission->getAttribute("EIN"))
        return STATUS_EIN_DIFFERS;
    if (std::strcmp(year != nullptr ? year : "", submission->getAttribute("Year")) != 0)
        return STATUS_YEAR_DIFFERS;

    copy_nodes = document->selectNodes("//Copy", true);
    if (!copy_nodes || copy_nodes->length() == 0)
        return STATUS_NO_COPY;
    return STATUS_OK;
}

void add_copies_of_type(COXMLDocument* document, CStatus* status, int type)
{
    const char* xpath = copy_type_xpath(type);
    if (document == nullptr || status == nullptr || xpath == nullptr)
        return;
    std::shared_ptr<COXMLNodeList> nodes = document->selectNodes(xpath, true);
    if (!nodes)
        return;
    const int count = nodes->length();
    for (int i = 0; i < count; ++i) {
        COXMLNode* node = nodes->item(i);
        CCopy* copy = new CCopy();
        // Leading digits as strtol reads them, held to the 32-bit range as on the deployed platform.
        copy->set_vlid(AuditUtil::to_int(node->getAttribute("Vlid")));
        copy->set_type(static_cast<Vellument::FILING_TYPE>(type));
        copy->set_identifier(node->getAttribute("CopyCode"));
        copy->set_deleted_flag(is_true(node->getAttribute("IsDeleted")));
        copy->set_replaceable_flag(is_true(node->getAttribute("IsReplaceable")));
        status->add_copy(copy);
    }
}

void read_store_reply(const char* body, int& error)
{
    Reply reply(body);
    const std::string answer = trimmed(reply.get(kStorePath));
    if (!answer.empty()) {
        error = answer == "1" ? FILE_OK : STORE_REFUSED;
        return;
    }
    error = classify_fault(reply.get(kFaultPath), error);
}

std::string read_vellument_reply(const char* body, int& error)
{
    Reply reply(body);
    std::string text = reply.get(kVellumentPath);
    if (text.size() < kNotFoundMaxLength && contains(text, kNotFound)) {
        error = VELLUMENT_NOT_FOUND;
        return std::string();
    }
    // Faults are not read: a fault comes back as an empty text with 0, and callers rely on that.
    error = FILE_OK;
    return text;
}

std::string read_hash_reply(const char* body, int& error)
{
    Reply reply(body);
    std::string hash = reply.get(kHashPath);
    if (contains(hash, kNotFound)) {
        error = HASH_NOT_FOUND;
        return std::string();
    }
    if (hash.empty())
        error = classify_fault(reply.get(kFaultPath), error);
    // The fault's classification does not survive: an empty hash is reported with 0, which the
    // callers take as "nothing to compare" rather than a failure.
    error = FILE_OK;
    return hash;
}

} // namespace SoapReply
