#ifndef VELLUMENT_TOOL_CLI_SUPPORT_H
#define VELLUMENT_TOOL_CLI_SUPPORT_H

// What every command of the tool shares: its error type, the library's log and message boxes kept
// off the terminal, paths between the user's and the library's form, reading a trail without
// touching it, and the database password.

#include <stdexcept>
#include <string>
#include <vector>

#include "cli_run.h"

class CVellument;

namespace cli {

using tool_cli::EXIT_INPUT;
using tool_cli::EXIT_OK;
using tool_cli::EXIT_USAGE;
using tool_cli::Error;

// Options every command takes.
struct Context {
    bool verbose = false;
};

// While alive, the library's log lines and message boxes go to this object instead of the log file
// and stderr: with verbose they are echoed to stderr, otherwise only failures are kept, so that an
// error line can name the library's reason.
class LibraryOutput {
public:
    explicit LibraryOutput(bool verbose);
    ~LibraryOutput();
    LibraryOutput(const LibraryOutput&) = delete;
    LibraryOutput& operator=(const LibraryOutput&) = delete;

    // The last failure the library logged or showed, "" when none.
    std::string last_failure() const { return last_failure_; }
    void clear() { last_failure_.clear(); }

    // One line of the library's log (level 1 to 4) or, with level 0, the text of a message box.
    void record(int level, const char* text);

private:
    bool verbose_;
    int previous_level_;
    std::string last_failure_;
};

// The library's (Windows) form of a path given on the command line: a path with a backslash or a
// drive letter stays as it is, a POSIX path is made absolute and put under its drive (Z: is "/"),
// so that the company directory can be told from it.
std::string library_path(const std::string& argument);
// The disk path of a library path.
std::string disk_path(const std::string& library);
// The directory part of a library path, with its trailing backslash; the last component.
std::string directory_of(const std::string& library);
std::string file_name_of(const std::string& library);
bool file_exists(const std::string& library);
bool directory_exists(const std::string& library);

// Opens the vellument at the library path read-only: nothing on disk changes. Refuses, with a
// clear message, a missing file, a file that isn't XML and a document without a transaction,
// which the library would otherwise take as a fresh trail or leave unusable. `shown` names the
// file in messages.
void open_trail(const CVellument& vellument, const std::string& library, const std::string& shown);

// The database password: from the environment variable named by env_name when that isn't empty
// (unset is an error), else by a prompt without echo when stdin is a terminal, else empty.
std::string read_password(const std::string& env_name);

// The library's hash of a file: MD5 in lower-case hex, "-1" when the file can't be read.
std::string md5_of_file(const std::string& library);

// What an upload status of Histories\Vellument.INI ("true", "false", "Not Found") means, in words.
std::string upload_words(const std::string& status);

// Text from the library (Windows-1252) for a UTF-8 terminal or JSON.
std::string utf8(const std::string& ansi);

} // namespace cli

#endif
