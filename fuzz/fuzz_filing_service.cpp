// Feeds bytes to the stand-in filing service's readers of what comes off the network: the request
// envelope, the entity decoding of its texts and the copy intake of a stored vellument. Every
// reply that the service would build from what it read must parse again to the same answer.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <pugixml.hpp>

#include "tools/filing-service/soap.h"
#include "tools/filing-service/text.h"
#include "tools/filing-service/vellument_copies.h"

namespace {

void check_reply_round_trip(const std::string& operation, const std::string& answer)
{
    if (answer.find('\0') != std::string::npos)
        return;  // no XML text carries a NUL
    const std::string reply = fs_soap::reply(operation, answer);
    pugi::xml_document doc;
    // Line ends as they stand, as the client's reply reader keeps them.
    if (!doc.load_buffer(reply.data(), reply.size(),
                         (pugi::parse_default | pugi::parse_ws_pcdata) & ~pugi::parse_eol))
        std::abort();
    const std::string back = doc.document_element()
                                 .child("soap:Body")
                                 .child((operation + "Response").c_str())
                                 .child_value(fs_soap::answer_element(operation));
    if (back != answer)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);

    fs_soap::Request request;
    std::string fault;
    if (fs_soap::parse_request(input, request, fault)) {
        for (const auto& parameter : request.parameters)
            check_reply_round_trip(request.operation, parameter.second);
        fs_intake::efiled_copies(request.get("fileText"));
    } else if (fault.empty()) {
        std::abort();
    }
    fs_intake::efiled_copies(input);

    // Repair gives valid UTF-8, which a second repair leaves alone.
    const std::string repaired = fs_text::repair_utf8(input);
    if (fs_text::repair_utf8(repaired) != repaired)
        std::abort();
    std::string decoded;
    if (fs_text::decode_entities(input, decoded) && decoded.size() > input.size())
        std::abort();  // no reference is shorter than its character's UTF-8 bytes
    return 0;
}
