#ifndef VELLUMENT_TESTS_COMPANY_FIXTURE_H
#define VELLUMENT_TESTS_COMPANY_FIXTURE_H

// A company directory on disk laid out as the application lays it out, addressed in Windows form,
// and small helpers to write vellument files by hand and to look at what the library left.

#include <openssl/evp.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/Ostrel_Log.h>

#include "log_capture.h"
#include "test_util.h"

namespace vlmtest {

inline std::string md5_hex(const std::string& bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr);
    std::string hex;
    char two[3];
    for (unsigned int i = 0; i < size; ++i) {
        std::snprintf(two, sizeof two, "%02x", digest[i]);
        hex += two;
    }
    return hex;
}

inline std::string upper(std::string text)
{
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

// The vellument of the tests' company, in the Histories folder, as the library names it and as
// it lies on disk.
const char kName[] = "Histories\\Vellument_W2_2021.VLM";
const char kDisk[] = "Histories/Vellument_W2_2021.VLM";

// <tmp>/Co with Histories and Drafts, in mixed case on disk.
class Company {
public:
    Company()
    {
        disk_ = tmp_.path() + "/Co";
        std::filesystem::create_directories(disk_ + "/Histories");
        std::filesystem::create_directories(disk_ + "/Drafts");
        win_ = Ostrel::FileSystem::ToWindowsPath(disk_.c_str());
    }

    // Windows form of a file under the company directory; relative uses backslashes.
    std::string win(const std::string& relative) const { return win_ + "\\" + relative; }
    // Disk form; relative uses slashes.
    std::string disk(const std::string& relative) const { return disk_ + "/" + relative; }
    // The Windows name as the library keys it after opening.
    std::string key(const std::string& relative) const { return upper(win(relative)); }
    std::string company_dir() const { return upper(win_) + "\\"; }

    std::string settings() const { return win("Histories\\Vellument.INI"); }
    std::string setting(const std::string& key) const
    {
        return _GetValue(settings(), "VELLUMENT", key.c_str(), "Not Found", false);
    }
    // Records the file's hash as a save by the library would, so that it doesn't count as edited.
    // relative is in Windows form ("Histories\\Vellument_W2_2021.VLM").
    void record_hash(const std::string& relative) const
    {
        _SetValue(settings().c_str(), key(relative).c_str(), md5_hex(read(slashed(relative))).c_str());
    }

    void write(const std::string& relative, const std::string& bytes) const { testutil::write_file(disk(relative), bytes); }
    // Writes a vellument (relative in Windows form) and records it as the library's last save.
    void write_saved(const std::string& bytes, const std::string& relative = kName) const
    {
        write(slashed(relative), bytes);
        record_hash(relative);
    }
    // Files the library makes carry its upper-cased names: look them up as Windows would.
    std::string read(const std::string& relative) const { return testutil::read_file(resolve(relative)); }
    bool exists(const std::string& relative) const { return std::filesystem::exists(resolve(relative)); }
    std::string resolve(const std::string& relative) const
    {
        std::string path = disk_;
        std::string::size_type from = 0;
        while (from <= relative.size()) {
            std::string::size_type slash = relative.find('/', from);
            if (slash == std::string::npos)
                slash = relative.size();
            const std::string part = relative.substr(from, slash - from);
            from = slash + 1;
            std::string found = part;
            if (!std::filesystem::exists(path + "/" + part) && std::filesystem::is_directory(path)) {
                for (const auto& entry : std::filesystem::directory_iterator(path)) {
                    if (upper(entry.path().filename().string()) == upper(part))
                        found = entry.path().filename().string();
                }
            }
            path += "/" + found;
        }
        return path;
    }

    // Every file below the company directory with its bytes, to prove that nothing changed.
    std::map<std::string, std::string> snapshot() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(disk_)) {
            if (entry.is_regular_file())
                files[entry.path().string()] = testutil::read_file(entry.path().string());
        }
        return files;
    }

private:
    static std::string slashed(std::string relative)
    {
        for (char& c : relative)
            if (c == '\\')
                c = '/';
        return relative;
    }

    testutil::TempDir tmp_;
    std::string disk_;
    std::string win_;
};

// Counts message boxes instead of showing them.
class MessageBoxSpy {
public:
    MessageBoxSpy() { Ostrel::Log::SetMessageBoxHandler(&MessageBoxSpy::show, this); }
    ~MessageBoxSpy() { Ostrel::Log::SetMessageBoxHandler(nullptr, nullptr); }
    std::vector<std::string> texts;

private:
    static int show(void* context, const char* text, unsigned int)
    {
        static_cast<MessageBoxSpy*>(context)->texts.push_back(text != nullptr ? text : "");
        return Ostrel::Log::BUTTON_OK;
    }
};

// Hand-written documents, independent of the library's writer.
inline std::string trail(const std::string& root_attributes, const std::string& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<AuditTrail " + root_attributes + ">" + body +
           "</AuditTrail>\n";
}

inline std::string transaction(const std::string& action, const std::string& status_body = "",
                               const std::string& package_body = "", const std::string& dictionary = "")
{
    std::string text = "<Transaction Action=\"" + action + "\">";
    if (!dictionary.empty())
        text += "<Dictionary " + dictionary + "/>";
    text += "<Package>" + package_body + "</Package><Status>" + status_body + "</Status></Transaction>";
    return text;
}

// The actions of the trail, oldest first.
inline std::vector<Vellument::ActionType> actions(const CVellument& v)
{
    std::vector<Vellument::ActionType> result;
    for (int i = 0; i < v.get_transaction_count(); ++i)
        result.push_back(v.get_transaction(i)->get_action());
    return result;
}

} // namespace vlmtest

#endif
