#ifndef VELLUMENT_VELLUMENT_WEBSEAM_H
#define VELLUMENT_VELLUMENT_WEBSEAM_H

// The three places where the vellument's lifecycle talks to the filing server. Everything else
// in opening and saving is local; keeping the exchanges here means the web client plugs in
// without the lifecycle code changing.
//
// Until the web client is built in, these behave as a server that cannot be reached: no hash,
// nothing brought down, and an upload that leaves its result code as the caller preset it.

#include <string>

namespace WebSeam {

// The hash the server holds for this EIN, form type and year; empty when it has none or can't
// be reached. error is set only on the ways the service reports; a transport failure leaves it.
std::string get_server_hash(const char* filing_ein, const char* form_type, const char* filing_year, int& error);

// Replaces the file at path by the server's copy, the previous file set aside. False, with
// nothing done, when this form and year are never brought down. True means a download was
// attempted: whether it worked is not reported, and the caller records a download either way.
bool download(const char* filing_ein, const char* form_type, const char* filing_year, const char* path);

// Uploads the file at path with its hash. result becomes 0 on success or the service's code; a
// transport failure leaves it as it was, so callers preset it to a non-zero value.
void upload(const char* filing_ein, const char* form_type, const char* filing_year, const char* hash,
            const char* path, int& result);

} // namespace WebSeam

#endif
