#ifndef VELLUMENT_FILING_SERVICE_SOAP_H
#define VELLUMENT_FILING_SERVICE_SOAP_H

// The SOAP side of the service: reading a request envelope and writing the replies in the shape
// the library's client reads (root soap:Envelope, child soap:Body, an unprefixed response element
// with its `response`, `fileText` or `hash` child; faults under soap:Body/soap:Fault/faultstring).

#include <map>
#include <string>
#include <vector>

#include "store.h"

namespace fs_soap {

// The four operations, and the namespace that the service was built with (ends in "/").
extern const char* const kOperations[4];
extern const char* const kNamespace;

bool is_operation(const std::string& name);

struct Request {
    std::string operation;
    // Parameters by local element name, entities decoded to UTF-8.
    std::map<std::string, std::string> parameters;

    const std::string& get(const std::string& name) const;
};

// Reads an envelope: the operation is the local name of the first element in the Body, the
// parameters its child elements. False, with a fault text, when the body is not such an envelope,
// names no known operation or lacks a parameter that the operation needs.
bool parse_request(const std::string& body, Request& out, std::string& fault_text);

// The name of the element that carries an operation's answer.
const char* answer_element(const std::string& operation);

// The reply to an operation with its answer (plain text; escaped here). With `soap_env_prefix` the
// body element is written as SOAP-ENV:Body, which the client does not read.
std::string reply(const std::string& operation, const std::string& answer, bool soap_env_prefix = false);

// A SOAP fault with the text as faultstring.
std::string fault(const std::string& text);

// The status document of a filing: SubmissionStatus with EIN and Year, one Copy per copy.
std::string status_document(const std::string& ein, const std::string& year,
                            const std::vector<fs_store::Copy>& copies);

} // namespace fs_soap

#endif
