#include "cli_support.h"

#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>

#include <vellument/CVellument.h>
#include <vellument/CkByteData.h>
#include <vellument/CkCrypt2.h>
#include <vellument/CkStringBuilder.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

namespace cli {

namespace {

void log_sink(void* context, Ostrel::Log::Level level, const char*, int, const char*, const char* text)
{
    static_cast<LibraryOutput*>(context)->record(static_cast<int>(level), text);
}

int message_box(void* context, const char* text, unsigned int)
{
    static_cast<LibraryOutput*>(context)->record(0, text);
    return Ostrel::Log::BUTTON_OK;
}

// Far more than a vellument's own nesting, far less than makes reading it slow.
const int kMaxDepth = 32;

bool has_drive_letter(const std::string& path)
{
    return path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

} // namespace

LibraryOutput::LibraryOutput(bool verbose) : verbose_(verbose), previous_level_(Ostrel::Log::GetLevel())
{
    // Quiet, the tool keeps only failures; verbose, what VELLUMENT_LOG_LEVEL lets through.
    if (!verbose_)
        Ostrel::Log::SetLevel(Ostrel::Log::LEVEL_FAILURE);
    Ostrel::Log::SetSink(&log_sink, this);
    Ostrel::Log::SetMessageBoxHandler(&message_box, this);
}

LibraryOutput::~LibraryOutput()
{
    Ostrel::Log::SetMessageBoxHandler(nullptr, nullptr);
    Ostrel::Log::SetSink(nullptr, nullptr);
    Ostrel::Log::SetLevel(previous_level_);
}

void LibraryOutput::record(int level, const char* text)
{
    std::string line = text != nullptr ? text : "";
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == ' '))
        line.pop_back();
    if (verbose_) {
        if (level == 0)
            std::fprintf(stderr, "vellument: library message: %s\n", utf8(line).c_str());
        else
            std::fprintf(stderr, "vellument: log %d: %s\n", level, utf8(line).c_str());
    }
    if (level <= Ostrel::Log::LEVEL_FAILURE && !line.empty())
        last_failure_ = line;
}

std::string library_path(const std::string& argument)
{
    if (argument.empty())
        throw Error("an empty path was given");
    if (argument.find('\\') != std::string::npos || has_drive_letter(argument))
        return argument;
    std::error_code ec;
    std::filesystem::path absolute = std::filesystem::absolute(argument, ec);
    if (ec)
        throw Error("cannot make an absolute path of " + argument + ": " + ec.message());
    std::string normal = absolute.lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return Ostrel::FileSystem::ToWindowsPath(normal.c_str());
}

std::string disk_path(const std::string& library)
{
    return Ostrel::FileSystem::MapPath(library.c_str());
}

std::string directory_of(const std::string& library)
{
    const std::string::size_type cut = library.find_last_of('\\');
    return cut == std::string::npos ? std::string() : library.substr(0, cut + 1);
}

std::string file_name_of(const std::string& library)
{
    const std::string::size_type cut = library.find_last_of('\\');
    return cut == std::string::npos ? library : library.substr(cut + 1);
}

bool file_exists(const std::string& library)
{
    return Ostrel::FileSystem::GetFileExists(library.c_str());
}

bool directory_exists(const std::string& library)
{
    std::error_code ec;
    return std::filesystem::is_directory(disk_path(library), ec);
}

void open_trail(const CVellument& vellument, const std::string& library, const std::string& shown)
{
    if (!file_exists(library)) {
        if (directory_exists(library))
            throw Error(shown + " is a directory, not a vellument file");
        throw Error(shown + ": no such file");
    }
    // The library would take a file it can't parse for a fresh, empty trail: say what it is instead.
    int code = 0;
    char reason[256] = "";
    std::unique_ptr<COXMLDocument> document(COXMLDocument::load(library.c_str(), &code, reason, sizeof reason));
    COXMLNode* root = document ? document->getDocumentElement() : nullptr;
    if (root == nullptr) {
        const std::string why = reason[0] != '\0' ? std::string(" (") + reason + ")" : std::string();
        throw Error(shown + " is not an XML document" + why);
    }
    // A vellument nests five elements deep. The library finds records below a record at any depth,
    // so records nested into each other by the thousand would take it quadratic time to read:
    // such a file is refused rather than left to hang the tool.
    std::string too_deep;
    for (int level = 0; level <= kMaxDepth; ++level)
        too_deep += "/*";
    if (root->selectSingleNode(too_deep.c_str()) != nullptr)
        throw Error(shown + " nests its elements more than " + std::to_string(kMaxDepth) +
                    " deep, which no vellument does");
    const std::string root_name = root->nodeName() != nullptr ? root->nodeName() : "";
    if (root->getElementsByTagName("Transaction")->length() == 0) {
        if (root_name != "AuditTrail")
            throw Error(shown + " is XML but no vellument: its root is <" + root_name + ">, not <AuditTrail>");
        throw Error(shown + " holds no transaction: a vellument trail has at least one");
    }
    document.reset();

    try {
        vellument.open(library.c_str(), "", "", "", false, true);
    } catch (int) {
        throw Error(shown + " holds no transaction: a vellument trail has at least one");
    } catch (const std::exception& e) {
        throw Error(shown + ": " + e.what());
    }
    if (vellument.get_current_transaction() == nullptr)
        throw Error(shown + " holds no transaction: a vellument trail has at least one");
}

std::string read_password(const std::string& env_name)
{
    if (!env_name.empty()) {
        const char* value = std::getenv(env_name.c_str());
        if (value == nullptr)
            throw Error("environment variable " + env_name + " (named by --password-env) is not set");
        return value;
    }
    if (!isatty(STDIN_FILENO))
        return std::string();

    std::fprintf(stderr, "Database password (Enter for none): ");
    std::fflush(stderr);
    struct termios saved;
    const bool can_hide = tcgetattr(STDIN_FILENO, &saved) == 0;
    if (can_hide) {
        struct termios quiet = saved;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::string password;
    std::getline(std::cin, password);
    if (can_hide)
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    std::fprintf(stderr, "\n");
    return password;
}

std::string md5_of_file(const std::string& library)
{
    CkCrypt2 crypt;
    crypt.put_HashAlgorithm("md5");
    CkByteData digest;
    CkStringBuilder text;
    if (!crypt.HashFile(library.c_str(), digest) || !text.AppendEncoded(digest, "hexlower"))
        return "-1";
    const char* hex = text.GetAsString();
    return hex != nullptr && *hex != '\0' ? std::string(hex) : std::string("-1");
}

std::string upload_words(const std::string& status)
{
    if (status == "Not Found")
        return "never uploaded from this company directory, so a normal open never replaces the file with the "
               "server's copy";
    if (status == "false")
        return "the last upload to the filing server failed or found no server; the server's copy is not fetched "
               "until an upload succeeds";
    if (status == "true")
        return "the last upload to the filing server succeeded; a normal open fetches the server's copy when its "
               "hash differs from the file's";
    return "\"" + status + "\" counts as a successful upload";
}

std::string utf8(const std::string& ansi)
{
    return Ostrel::Format::AnsiToUtf8(ansi);
}

} // namespace cli
