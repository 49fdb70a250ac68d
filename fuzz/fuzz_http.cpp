// Feeds bytes as a server's reply to the HTTP client's reply side: head, framing, gzip, the body
// as text, and a redirect's Location resolved against a URL.
#include <cstddef>
#include <cstdint>
#include <string>

#include <vellument/Ostrel_Format.h>

#include "toolkit/CkHttp_Internal.h"

namespace {

// Small enough that a hostile length can't make a run slow, large enough for real replies.
const std::uint64_t kLimit = 4 << 20;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* bytes = reinterpret_cast<const char*>(data);
    ckhttp::MemorySource source(bytes, size);
    ckhttp::Trail trail;
    ckhttp::Reply reply;
    ckhttp::ReplyReader reader(source, trail, 0, kLimit);
    ckhttp::ReadOutcome outcome = reader.read(reply);
    if (outcome == ckhttp::READ_OK || outcome == ckhttp::READ_BODY_FAILED) {
        if (ckhttp::wantsGunzip(reply))
            ckhttp::gunzipBody(reply.body, kLimit);
        bool binary = false;
        std::string text = ckhttp::bodyToUtf8(reply.body, reply.fields, binary);
        // The shortcut must give what the conversion gives.
        if (ckhttp::bodyIsItsOwnText(reply.body, reply.fields) && text != reply.body)
            __builtin_trap();
        Ostrel::Format::Utf8ToAnsi(text);
        if (const ckhttp::Header* location = ckhttp::findHeader(reply.fields, "Location")) {
            ckhttp::Url current;
            std::string error;
            ckhttp::parseUrl("https://127.0.0.1:8443/dir/page?q=1", current, error);
            ckhttp::Url next;
            if (ckhttp::parseUrl(ckhttp::resolveLocation(current, location->value), next, error))
                ckhttp::buildRequestHead("GET", next, reply.fields, -1, true, "text/xml");
        }
    }
    trail.finish(outcome == ckhttp::READ_OK);
    return 0;
}
