#ifndef VELLUMENT_FILING_SERVICE_OPERATIONS_H
#define VELLUMENT_FILING_SERVICE_OPERATIONS_H

// What the service answers to one request: the operation itself over the store, and the faults
// that the admin command queues in its place.

#include <string>

#include "soap.h"
#include "store.h"

namespace fs_ops {

// A reply before it goes on the wire.
struct Reply {
    int status = 200;
    std::string content_type = "text/xml; charset=utf-8";
    std::string body;
    bool gzip = false;     // send the body gzip-compressed
    bool chunked = false;  // send it with chunked transfer encoding
    bool close = false;    // send nothing, close the connection
    long delay_ms = 0;     // wait this long first
    std::string outcome;   // for the log line
};

// The fault kinds of `fault --kind`, with a line on each for --help.
extern const char* const kFaultKinds[];
bool is_fault_kind(const std::string& kind);
std::string fault_kinds_help();

// A SOAP fault reply (status 500).
Reply fault_reply(const std::string& text);

// Performs the request on the store. The access key and SOAPAction must have been checked. With
// `soap_env_prefix` the reply is written under SOAP-ENV:Body, which the client does not read.
Reply perform(fs_store::Store& store, const fs_soap::Request& request, bool soap_env_prefix = false);

// Stores a vellument text (UTF-8) with its hash as a client would, taking in its e-filed copies.
// Returns the version number.
int store_vellument(fs_store::Store& store, const fs_store::FilingKey& key, const std::string& hash,
                    const std::string& text, const std::string& source);

// The reply that a queued fault makes of the request: either instead of the operation or around
// its normal reply.
Reply apply_fault(fs_store::Store& store, const fs_soap::Request& request, const fs_store::Fault& fault);

} // namespace fs_ops

#endif
