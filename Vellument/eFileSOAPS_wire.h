#ifndef VELLUMENT_VELLUMENT_EFILESOAPS_WIRE_H
#define VELLUMENT_VELLUMENT_EFILESOAPS_WIRE_H

// What goes out to the filing service: the envelopes, the choice of server and the exchange.

#include <cstddef>
#include <string>

class CkString;

// The URL every request goes to, decided anew from Settings.ini each time.
std::string get_service_url();

// The status document text for this filer, form and year; empty when there is none, with the
// service's fault text in fault (left as it was when no reply came at all).
std::string get_submission_status(const char* ein, const char* formName, const char* year, std::string& fault);

namespace SoapWire {

// The EIN without any "-" or blank.
std::string normalise_ein(const char* ein);

// The request text of an operation. Values go in as they stand, unescaped: only the upload text
// comes escaped, from upload_text. hash and file_text (file_size bytes) are the two extra
// parameters of StoreVellument, null for the others.
std::string envelope(const char* operation, const char* ein, const char* form_name, const char* year,
                     const char* hash = nullptr, const char* file_text = nullptr, std::size_t file_size = 0);

// Posts the request to the service. True with the reply body when an HTTP reply came, whatever
// its status; false (logged) with the transport's error text when none did.
bool exchange(const char* operation, const std::string& request, std::string& body, std::string& transport_error);

// The exchange of one of the three operations whose parameters are the common four.
bool call(const char* operation, const char* ein, const char* form_name, const char* year, std::string& body,
          std::string& transport_error);

// The vellument file at path as it is uploaded: re-emitted from its parsed tree, without a
// declaration, entity-encoded. False (logged) when the file can't be loaded.
bool upload_text(const char* path, CkString& text);

} // namespace SoapWire

#endif
