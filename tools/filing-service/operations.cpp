#include "operations.h"

#include <cstring>

#include "vellument_copies.h"

namespace fs_ops {

namespace {

fs_store::FilingKey key_of(const fs_soap::Request& request)
{
    return fs_store::FilingKey{request.get("ein"), request.get("formName"), request.get("year")};
}

Reply answer(const std::string& operation, const std::string& text, const std::string& outcome,
             bool soap_env_prefix = false)
{
    Reply r;
    r.body = fs_soap::reply(operation, text, soap_env_prefix);
    r.outcome = outcome;
    return r;
}

} // namespace

const char* const kFaultKinds[] = {
    "system-error  a SOAP fault whose text is \"System error\" (or --text, which should contain it)",
    "fault         a SOAP fault with another text (--text, default \"Server was unable to process request.\")",
    "notfound      the answer \"NOTFOUND\" in the operation's reply element",
    "empty         HTTP 200 with an empty body",
    "soap-env      the operation's normal reply, but under SOAP-ENV:Body instead of soap:Body",
    "html-500      HTTP 500 with an HTML error page",
    "not-xml       HTTP 200 with a body that is not XML",
    "close         the connection closed without any reply",
    "delay         the normal reply after --ms milliseconds",
    "gzip          the normal reply, gzip-compressed (Content-Encoding: gzip)",
    "chunked       the normal reply with chunked transfer encoding",
    nullptr};

bool is_fault_kind(const std::string& kind)
{
    for (const char* const* k = kFaultKinds; *k; ++k)
        if (std::strncmp(*k, kind.c_str(), kind.size()) == 0 && (*k)[kind.size()] == ' ')
            return true;
    return false;
}

std::string fault_kinds_help()
{
    std::string help;
    for (const char* const* k = kFaultKinds; *k; ++k)
        help += std::string("  ") + *k + "\n";
    return help;
}

Reply fault_reply(const std::string& text)
{
    Reply r;
    r.status = 500;
    r.body = fs_soap::fault(text);
    r.outcome = "fault \"" + text + "\"";
    return r;
}

int store_vellument(fs_store::Store& store, const fs_store::FilingKey& key, const std::string& hash,
                    const std::string& text, const std::string& source)
{
    return store.store_version(key, hash, text, source, fs_intake::efiled_copies(text));
}

Reply perform(fs_store::Store& store, const fs_soap::Request& request, bool soap_env_prefix)
{
    const std::string& op = request.operation;
    const fs_store::FilingKey key = key_of(request);
    if (op == "StoreVellument") {
        // The hash is of the client's file, not of this re-emitted text: keep it as given.
        const int number = store_vellument(store, key, request.get("hash"), request.get("fileText"), op);
        return answer(op, "1", "stored version " + std::to_string(number), soap_env_prefix);
    }
    if (op == "GetSubmissionStatus") {
        std::vector<fs_store::Copy> copies;
        if (!store.get_status(key, copies))
            return answer(op, "NOTFOUND", "NOTFOUND", soap_env_prefix);
        return answer(op, fs_soap::status_document(key.ein, key.year, copies),
                      std::to_string(copies.size()) + " copies", soap_env_prefix);
    }
    fs_store::Version version;
    if (!store.get_version(key, version))
        return answer(op, "NOTFOUND", "NOTFOUND", soap_env_prefix);
    if (op == "GetVellument")
        return answer(op, version.text, "version " + std::to_string(version.number), soap_env_prefix);
    return answer(op, version.hash, "hash of version " + std::to_string(version.number), soap_env_prefix);
}

Reply apply_fault(fs_store::Store& store, const fs_soap::Request& request, const fs_store::Fault& fault)
{
    const std::string& kind = fault.kind;
    Reply r;
    if (kind == "system-error") {
        r = fault_reply(fault.text.empty() ? "System error" : fault.text);
    } else if (kind == "fault") {
        r = fault_reply(fault.text.empty() ? "Server was unable to process request." : fault.text);
    } else if (kind == "notfound") {
        r = answer(request.operation, "NOTFOUND", "NOTFOUND");
    } else if (kind == "empty") {
        r.body.clear();
    } else if (kind == "html-500") {
        r.status = 500;
        r.content_type = "text/html; charset=utf-8";
        r.body = "<!DOCTYPE html><html><head><title>Runtime Error</title></head><body><h1>Server Error in '/' "
                 "Application.</h1><p>An application error occurred on the server.</p></body></html>";
    } else if (kind == "not-xml") {
        r.content_type = "text/plain; charset=utf-8";
        r.body = "Service temporarily unavailable <maintenance & upgrade";
    } else if (kind == "close") {
        r.close = true;
    } else {
        // The kinds that change only how the normal reply travels: the operation takes place.
        r = perform(store, request, kind == "soap-env");
        r.delay_ms = kind == "delay" ? fault.delay_ms : 0;
        r.gzip = kind == "gzip";
        r.chunked = kind == "chunked";
    }
    r.outcome = "injected " + kind + (r.outcome.empty() ? "" : ": " + r.outcome);
    return r;
}

} // namespace fs_ops
