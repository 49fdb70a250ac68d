// The filing service client: the status of a filer's copies, and the vellument stored, fetched
// and hashed on the server.

#include <vellument/eFileSOAPS.h>

#include <cstring>

#include <vellument/CStatus.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Vellument/eFileSOAPS_reply.h"
#include "Vellument/eFileSOAPS_upload.h"
#include "Vellument/eFileSOAPS_wire.h"

const char* const service_namespace = VELLUMENT_SERVICE_NAMESPACE;
const char* const status_server_url = VELLUMENT_STATUS_SERVER_URL;
const char* const status_test_server_url = VELLUMENT_STATUS_TEST_SERVER_URL;
const char* const efile_host_name = VELLUMENT_EFILE_HOST_NAME;
const char* const access_key = "QXTR4-LMZ82-HBVNC-WPJK6-3DGAF";

eFileSOAPS::eFileSOAPS() : m_document(nullptr) {}

eFileSOAPS::~eFileSOAPS()
{
    // The node list points into the document.
    m_copy_nodes.reset();
    delete m_document;
}

CStatus* eFileSOAPS::get_filing(const char* ein, const char* formName, const char* year, int& error)
{
    // The caller always gets a status, empty when anything fails.
    CStatus* status = new CStatus();
    const std::string normalised = SoapWire::normalise_ein(ein);
    std::string fault;
    const std::string text = get_submission_status(normalised.c_str(), formName, year, fault);
    if (text.empty()) {
        error = SoapReply::status_failure_code(fault);
        return status;
    }
    const int code = SoapReply::read_status_document(text, normalised, year, m_document, m_copy_nodes);
    if (code != SoapReply::STATUS_OK) {
        error = code;
        return status;
    }
    for (int type : SoapReply::kCopyTypeOrder)
        add_copies_of_type(status, type);
    error = SoapReply::STATUS_OK;
    return status;
}

CStatus* eFileSOAPS::GetFiling(const char* ein, const char* formName, const char* year)
{
    int error = 0;
    return get_filing(ein, formName, year, error);
}

void eFileSOAPS::add_copies_of_type(CStatus* status, int type)
{
    SoapReply::add_copies_of_type(m_document, status, type);
}

void eFileSOAPS::StoreVellument(const char* ein, const char* formName, const char* year, const char* hash,
                                const char* path, int& error)
{
    const char operation[] = "StoreVellument";
    std::string head;
    std::string tail;
    SoapWire::envelope_parts(operation, ein, formName, year, hash, true, head, tail);
    // One block for the whole request: the file's text is written straight into its place.
    SoapUpload::Request request;
    request.append(head.data(), head.size());
    bool ascii = false;
    if (!SoapWire::upload_text(path, request, ascii)) {
        error = SoapReply::FILE_NOT_LOADED;
        return;
    }
    request.append(tail.data(), tail.size());
    // The plain text is ASCII by its making; the caller's values need a look.
    ascii = ascii && Ostrel::Format::IsAscii(head.data(), head.size()) &&
            Ostrel::Format::IsAscii(tail.data(), tail.size());
    std::string body;
    std::string transport_error;
    // Without a reply error stays as the caller preset it.
    // The body has always ended at its first NUL, which only a text from the tree can hold.
    const std::size_t size = ascii ? request.size() : std::strlen(request.data());
    if (!SoapWire::exchange(operation, request.data(), size, ascii, body, transport_error))
        return;
    SoapReply::read_store_reply(body.c_str(), error);
}

std::string eFileSOAPS::GetVellument(const char* ein, const char* formName, const char* year, int& error)
{
    std::string body;
    std::string transport_error;
    if (!SoapWire::call("GetVellument", ein, formName, year, body, transport_error)) {
        error = SoapReply::classify_fault(transport_error, error);
        return std::string();
    }
    return SoapReply::read_vellument_reply(body.c_str(), error);
}

std::string eFileSOAPS::get_vellument_hash(const char* ein, const char* formName, const char* year, int& error)
{
    std::string body;
    std::string transport_error;
    // Without a reply error stays as the caller preset it.
    if (!SoapWire::call("GetVellumentHash", ein, formName, year, body, transport_error))
        return std::string();
    return SoapReply::read_hash_reply(body.c_str(), error);
}
