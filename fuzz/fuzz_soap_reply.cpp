// Feeds bytes to the filing service client's reply readers: as the body of each operation's reply,
// and as the status document itself, through the checks and the copies it yields.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <vellument/CStatus.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

#include "Vellument/eFileSOAPS_reply.h"

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// The seeds' filer and year, so that well-formed documents get past the checks to the copies.
const char kEin[] = "123456789";
const char kYear[] = "2024";

void read_status(const std::string& text)
{
    COXMLDocument* document = nullptr;
    std::shared_ptr<COXMLNodeList> copy_nodes;
    const int code = SoapReply::read_status_document(text, kEin, kYear, document, copy_nodes);
    std::unique_ptr<CStatus> status(new CStatus());
    if (code == SoapReply::STATUS_OK) {
        check(document != nullptr && copy_nodes && copy_nodes->length() > 0);
        for (int type : SoapReply::kCopyTypeOrder)
            SoapReply::add_copies_of_type(document, status.get(), type);
        check(status->get_copy_count() <= copy_nodes->length());
    }
    copy_nodes.reset();
    delete document;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool quiet = [] {
        Ostrel::Log::SetLevel(0);
        return true;
    }();
    (void)quiet;

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const char* body = bytes.c_str();

    std::string fault;
    const std::string text = SoapReply::read_status_reply(body, fault);
    if (text.empty()) {
        const int code = SoapReply::status_failure_code(fault);
        check(code == 1 || code == 2 || code == 3);
    } else {
        check(fault.empty());
        read_status(text);
    }

    int error = -7;
    SoapReply::read_store_reply(body, error);
    check(error == 0 || error == 1 || error == 2 || error == 25 || error == -7);

    error = -7;
    const std::string vellument = SoapReply::read_vellument_reply(body, error);
    check((error == 0) || (error == 23 && vellument.empty()));

    error = -7;
    const std::string hash = SoapReply::read_hash_reply(body, error);
    check((error == 0) || (error == 22 && hash.empty()));

    read_status(bytes);
    return 0;
}
