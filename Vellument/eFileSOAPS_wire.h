#ifndef VELLUMENT_VELLUMENT_EFILESOAPS_WIRE_H
#define VELLUMENT_VELLUMENT_EFILESOAPS_WIRE_H

// What goes out to the filing service: the envelopes, the choice of server and the exchange.

#include <cstddef>
#include <string>

namespace SoapUpload {
class Request;
}

// The URL every request goes to, decided anew from Settings.ini each time.
std::string get_service_url();

// The status document text for this filer, form and year; empty when there is none, with the
// service's fault text in fault (left as it was when no reply came at all).
std::string get_submission_status(const char* ein, const char* formName, const char* year, std::string& fault);

namespace SoapWire {

// The EIN without any "-" or blank.
std::string normalise_ein(const char* ein);

// The request text of an operation, in the two parts before and behind the upload text. Values go
// in as they stand, unescaped: only the upload text comes escaped, from upload_text. With
// with_file the parts are StoreVellument's, with the hash as its fifth parameter and the file
// text to go between them; without, head and tail make the whole request.
void envelope_parts(const char* operation, const char* ein, const char* form_name, const char* year,
                    const char* hash, bool with_file, std::string& head, std::string& tail);

// The whole request text of an operation whose parameters are the common four.
std::string envelope(const char* operation, const char* ein, const char* form_name, const char* year);

// Posts the request (size bytes; ascii when the caller knows that it is all ASCII) to the
// service. True with the reply body when an HTTP reply came, whatever its status; false
// (logged) with the transport's error text when none did.
bool exchange(const char* operation, const char* request, std::size_t size, bool ascii, std::string& body,
              std::string& transport_error);

// The exchange of one of the three operations whose parameters are the common four.
bool call(const char* operation, const char* ein, const char* form_name, const char* year, std::string& body,
          std::string& transport_error);

// Appends the vellument file at path as it is uploaded: re-emitted from its parsed tree, without
// a declaration, entity-encoded. ascii tells whether the text is known to be all ASCII, as the
// plain shape's always is. False (logged), with out as it was, when the file can't be loaded.
bool upload_text(const char* path, SoapUpload::Request& out, bool& ascii);

} // namespace SoapWire

#endif
