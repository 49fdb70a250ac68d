#ifndef VELLUMENT_SERVERFUNCTIONS_H
#define VELLUMENT_SERVERFUNCTIONS_H

// Keeping a vellument in step with the filing server: bringing the server's copy down, and the
// two tests by which a copy of the trail is compared with the server's copy of it.

#include <vellument/export.h>

class CCopy;

// True, with a log line, for the form and years whose server copy is never brought down: "T5018"
// for "2020" and "2021" (exact texts; "T5018_OFFICIAL_FORM" is not matched).
VELLUMENT_API bool skip_download(const char* filing_year, const char* form_type);

// Replaces the vellument file at path (Windows form) by the text that the server holds. When the
// server reports an error nothing happens. Otherwise the file as it stood is kept under
// path + "_YYYYMMDDhhmmss.Backup" (a name already taken is logged and left alone: a backup is
// never removed or overwritten), and the text is written exactly as it came, also when it is
// empty or no XML. The file is replaced whole or not at all; a write that fails throws
// std::ios_base::failure and leaves the previous file in place.
VELLUMENT_API void download_vellument(const char* filing_ein, const char* form_type, const char* filing_year,
                                      const char* path);

// The copy was e-filed, is no Review copy, and the server has no copy for it (server_copy null).
VELLUMENT_API bool is_server_efiling_copy_missing(const CCopy* server_copy, const CCopy* copy);
// The server has the copy and differs from it in the replaceable or the deleted flag.
VELLUMENT_API bool has_server_status_changed(const CCopy* server_copy, const CCopy* copy);

#endif
