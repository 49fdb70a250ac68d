#ifndef VELLUMENT_VELLUMENT_EFILESOAPS_REPLY_H
#define VELLUMENT_VELLUMENT_EFILESOAPS_REPLY_H

// Reading the filing service's replies into texts and result codes. Nothing here talks to the
// network, so the readers can be driven with any bytes (the fuzz target compiles this file in).
//
// Replies are read through the toolkit tree with fixed paths: the child of the reply's root must
// be tagged exactly "soap:Body" and the response element below it must have no prefix, so a reply
// written with other prefixes reads as empty. That is how the deployed clients read the service,
// and callers depend on empty answers meaning "no usable answer".

#include <memory>
#include <string>

class CStatus;
class COXMLDocument;
class COXMLNodeList;

namespace SoapReply {

// Result codes of the status request.
enum StatusCode {
    STATUS_OK = 0,
    STATUS_SYSTEM_ERROR = 1,
    STATUS_NO_ANSWER = 2,
    STATUS_OTHER_FAULT = 3,
    STATUS_NO_SUBMISSION = 10,
    STATUS_EIN_DIFFERS = 11,
    STATUS_YEAR_DIFFERS = 12,
    STATUS_NO_COPY = 13,
};

// Result codes of the three file operations.
enum FileCode {
    FILE_OK = 0,
    FILE_SYSTEM_ERROR = 1,
    FILE_NO_ANSWER = 2,
    FILE_NOT_LOADED = 20,
    HASH_NOT_FOUND = 22,
    VELLUMENT_NOT_FOUND = 23,
    STORE_REFUSED = 25,
};

// A fault text classified: 1 when it contains "System error", 2 when it is empty, else error
// unchanged.
int classify_fault(const std::string& fault, int error);

// The status request's reply: the status document text, and when that is empty the fault text.
std::string read_status_reply(const char* body, std::string& fault);
// The code of a status request that brought no status document.
int status_failure_code(const std::string& fault);

// Parses the status document and checks it against the normalised EIN and the year asked for.
// The new document (null when the text doesn't parse) replaces document, the old one deleted;
// copy_nodes is released before that and then holds the document's Copy nodes once they're found.
// Returns 0 when the copies can be read, else the code of the failure.
int read_status_document(const std::string& text, const std::string& ein, const char* year, COXMLDocument*& document,
                         std::shared_ptr<COXMLNodeList>& copy_nodes);
// Adds to status a copy for each Copy element of document with the CopyType of type (1 FED,
// 2 STATE, 3 LOCAL, 4 EMP), in document order. Other types add nothing.
void add_copies_of_type(COXMLDocument* document, CStatus* status, int type);
// The copy types in the order their copies go into a status.
extern const int kCopyTypeOrder[4];

// The store request's reply: error becomes 0 for the answer "1" (blanks around it allowed), 25
// for any other answer, and without an answer the fault's classification.
void read_store_reply(const char* body, int& error);
// The vellument request's reply: its text with error 0, or empty with 23 for a short "NOTFOUND".
std::string read_vellument_reply(const char* body, int& error);
// The hash request's reply: the hash with error 0, or empty with 22 for "NOTFOUND".
std::string read_hash_reply(const char* body, int& error);

} // namespace SoapReply

#endif
