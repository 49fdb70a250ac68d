// Path mapping of the file-system layer: drive letters, case-insensitive lookup of each
// component, and the way back from a disk path to the library's Windows form.

#include <vellument/Ostrel_FileSystem.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/FileSystem_Paths.h"

namespace Ostrel {

using namespace FileSystemDetail;

namespace {

bool IsAsciiLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

char UpperAscii(char c)
{
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

bool IsSeparator(char c)
{
    return c == '\\' || c == '/';
}

bool HasDriveLetter(const char* p)
{
    return IsAsciiLetter(p[0]) && p[1] == ':';
}

// A path in Windows form has a backslash or a drive letter; anything else is a disk path.
bool IsWindowsForm(const char* p)
{
    return std::strchr(p, '\\') != nullptr || HasDriveLetter(p);
}

// ---------------------------------------------------------------------------------------------
// Drive table: Z: is the root unless changed; VELLUMENT_DRIVES adds letters; SetDrive overrides
// both. The environment is compared on every use, so a change to it takes effect.

class DriveTable {
public:
    std::optional<std::string> Lookup(char letter)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        RefreshEnvironment();
        return LookupLocked(UpperAscii(letter));
    }

    std::map<char, std::string> Snapshot()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        RefreshEnvironment();
        std::map<char, std::string> all;
        for (char letter = 'A'; letter <= 'Z'; ++letter) {
            std::optional<std::string> root = LookupLocked(letter);
            if (root)
                all[letter] = *root;
        }
        return all;
    }

    void Set(char letter, const char* root)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (root == nullptr || *root == '\0')
            overrides_[UpperAscii(letter)] = std::nullopt;
        else
            overrides_[UpperAscii(letter)] = TrimTrailingSlashes(root);
    }

private:
    std::optional<std::string> LookupLocked(char letter) const
    {
        auto o = overrides_.find(letter);
        if (o != overrides_.end())
            return o->second;
        auto e = environment_.find(letter);
        if (e != environment_.end())
            return e->second;
        if (letter == 'Z')
            return std::string("/");
        return std::nullopt;
    }

    void RefreshEnvironment()
    {
        const char* value = std::getenv("VELLUMENT_DRIVES");
        std::string text = value ? value : "";
        if (parsed_ && text == seen_)
            return;
        parsed_ = true;
        seen_ = text;
        environment_.clear();
        // Entries "C=/srv/c" (or "C:=/srv/c") separated by semicolons; malformed ones are skipped.
        std::size_t start = 0;
        while (start <= text.size()) {
            std::size_t end = text.find(';', start);
            if (end == std::string::npos)
                end = text.size();
            std::string entry = text.substr(start, end - start);
            start = end + 1;
            std::size_t first = entry.find_first_not_of(" \t");
            if (first == std::string::npos)
                continue;
            entry.erase(0, first);
            while (!entry.empty() && (entry.back() == ' ' || entry.back() == '\t'))
                entry.pop_back();
            if (entry.size() < 3 || !IsAsciiLetter(entry[0]))
                continue;
            std::size_t at = 1;
            if (entry[at] == ':')
                ++at;
            if (entry[at] != '=')
                continue;
            std::string root = entry.substr(at + 1);
            std::size_t root_start = root.find_first_not_of(" \t");
            if (root_start == std::string::npos)
                continue;
            environment_[UpperAscii(entry[0])] = TrimTrailingSlashes(root.substr(root_start));
        }
    }

    std::mutex mutex_;
    bool parsed_ = false;
    std::string seen_;
    std::map<char, std::string> environment_;
    std::map<char, std::optional<std::string>> overrides_;
};

DriveTable& Drives()
{
    static DriveTable* table = new DriveTable;  // never destroyed: used until the process ends
    return *table;
}

} // namespace

namespace FileSystemDetail {

std::string TrimTrailingSlashes(std::string root)
{
    while (root.size() > 1 && root.back() == '/')
        root.pop_back();
    return root;
}

// ---------------------------------------------------------------------------------------------
// Path mapping

bool Exists(const std::string& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

std::string JoinPath(const std::string& dir, const std::string& name)
{
    if (dir.empty())
        return name;
    if (dir.back() == '/')
        return dir + name;
    return dir + "/" + name;
}

// Disk names are UTF-8; names in the library's data are in the ANSI code page.
std::string DiskName(const std::string& component)
{
    if (Format::IsAscii(component.data(), component.size()))
        return component;
    return Format::AnsiToUtf8(component);
}

// The entry of `dir` that `component` names: as written if it exists, else the first (in byte
// order) whose name matches without regard to ASCII case. Empty when nothing matches.
std::string ResolveComponent(const std::string& dir, const std::string& component)
{
    const std::string converted = DiskName(component);
    if (Exists(JoinPath(dir, component)))
        return component;
    if (converted != component && Exists(JoinPath(dir, converted)))
        return converted;

    DIR* d = ::opendir(dir.empty() ? "." : dir.c_str());
    if (d == nullptr)
        return std::string();
    std::string best;
    bool found = false;
    while (struct dirent* entry = ::readdir(d)) {
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
            continue;
        std::string candidate(name);
        if (!Format::EqualsNoCaseAscii(candidate, component) && !Format::EqualsNoCaseAscii(candidate, converted))
            continue;
        if (!found || candidate < best) {
            best = candidate;
            found = true;
        }
    }
    ::closedir(d);
    return best;
}

MapResult MapPathQuiet(const char* path, std::string& out)
{
    out.clear();
    if (path == nullptr)
        return MapResult::NULL_PATH;
    if (!IsWindowsForm(path)) {
        out = path;
        return MapResult::OK;
    }

    std::string base;  // "" means the current directory
    const char* rest = path;
    bool absolute = false;
    if (HasDriveLetter(path)) {
        std::optional<std::string> root = Drives().Lookup(path[0]);
        if (!root)
            return MapResult::UNKNOWN_DRIVE;
        base = *root;
        rest = path + 2;
        absolute = true;  // "C:name" is taken from the drive's root: there is no per-drive directory here
    } else if (IsSeparator(path[0])) {
        base = "/";
        absolute = true;
    }

    // Split and fold "." and ".." by the text, as Windows does before it looks at the disk.
    std::vector<std::string> parts;
    const char* p = rest;
    while (*p != '\0') {
        while (IsSeparator(*p))
            ++p;
        const char* start = p;
        while (*p != '\0' && !IsSeparator(*p))
            ++p;
        if (p == start)
            break;
        std::string part(start, static_cast<std::size_t>(p - start));
        if (part == ".")
            continue;
        if (part == "..") {
            if (!parts.empty() && parts.back() != "..")
                parts.pop_back();
            else if (!absolute)
                parts.push_back(part);  // above the current directory: the disk decides
            continue;
        }
        parts.push_back(part);
    }
    const std::size_t length = std::strlen(path);
    const bool trailing = length > 0 && IsSeparator(path[length - 1]) && !parts.empty();

    std::string current = base;
    bool resolving = true;
    for (const std::string& part : parts) {
        std::string name;
        if (part == "..") {
            name = part;
        } else if (resolving) {
            name = ResolveComponent(current, part);
            if (name.empty()) {
                // Nothing below a missing component can exist: the rest is taken as given.
                resolving = false;
                name = DiskName(part);
            }
        } else {
            name = DiskName(part);
        }
        current = JoinPath(current, name);
    }
    if (current.empty())
        current = ".";
    if (trailing && current.back() != '/')
        current += '/';
    out = current;
    return MapResult::OK;
}

bool MapForOperation(const char* path, std::string& out)
{
    switch (MapPathQuiet(path, out)) {
    case MapResult::OK:
        return true;
    case MapResult::NULL_PATH:
        Error::SetLastError(Error::INVALID_PARAMETER);
        return false;
    case MapResult::UNKNOWN_DRIVE:
        Error::SetLastError(Error::PATH_NOT_FOUND);
        return false;
    }
    return false;
}

std::string ParentOf(const std::string& disk_path)
{
    std::string p = disk_path;
    while (p.size() > 1 && p.back() == '/')
        p.pop_back();
    std::size_t slash = p.rfind('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return p.substr(0, slash);
}

bool IsDirectory(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void SetErrorForPath(int err, const std::string& disk_path)
{
    if (err == ENOENT && !IsDirectory(ParentOf(disk_path))) {
        Error::SetLastError(Error::PATH_NOT_FOUND);
        return;
    }
    Error::SetLastErrorFromErrno(err);
}
} // namespace FileSystemDetail

std::string FileSystem::GetDirectory(const char* path)
{
    if (path == nullptr)
        return std::string();
    std::string p(path);
    std::size_t sep = p.find_last_of("\\/");
    if (sep != std::string::npos)
        return p.substr(0, sep + 1);
    if (HasDriveLetter(path))
        return p.substr(0, 2);
    return std::string();
}

std::string FileSystem::GetFileName(const char* path)
{
    if (path == nullptr)
        return std::string();
    std::string p(path);
    std::size_t sep = p.find_last_of("\\/");
    if (sep != std::string::npos)
        return p.substr(sep + 1);
    if (HasDriveLetter(path))
        return p.substr(2);
    return p;
}

std::string FileSystem::MapPath(const char* path)
{
    std::string disk;
    if (!MapForOperation(path, disk))
        return std::string();
    Error::SetLastError(Error::SUCCESS);
    return disk;
}

std::string FileSystem::ToWindowsPath(const char* disk_path)
{
    if (disk_path == nullptr)
        return std::string();
    if (IsWindowsForm(disk_path))
        return disk_path;
    std::string path(disk_path);
    if (path.empty() || path[0] != '/') {
        char cwd[4096];
        if (::getcwd(cwd, sizeof cwd) == nullptr)
            return std::string();
        path = JoinPath(cwd, path);
    }
    const bool trailing = path.size() > 1 && path.back() == '/';

    // Fold "." and ".." by the text, so that the result names the same place under any drive.
    std::vector<std::string> parts;
    std::size_t pos = 0;
    while (pos < path.size()) {
        std::size_t next = path.find('/', pos);
        if (next == std::string::npos)
            next = path.size();
        std::string part = path.substr(pos, next - pos);
        pos = next + 1;
        if (part.empty() || part == ".")
            continue;
        if (part == "..") {
            if (!parts.empty())
                parts.pop_back();
            continue;
        }
        parts.push_back(part);
    }
    std::string normal;
    for (const std::string& part : parts)
        normal += "/" + part;
    if (normal.empty())
        normal = "/";

    char best_letter = 0;
    std::size_t best_length = 0;
    for (const auto& drive : Drives().Snapshot()) {
        const std::string& root = drive.second;
        if (root.empty() || root[0] != '/')
            continue;
        bool under = root == "/" || normal == root
                     || (normal.compare(0, root.size(), root) == 0 && normal[root.size()] == '/');
        if (!under)
            continue;
        std::size_t length = root == "/" ? 0 : root.size();
        if (best_letter == 0 || length > best_length) {
            best_letter = drive.first;
            best_length = length;
        }
    }

    std::string tail = normal.substr(best_length);
    for (char& c : tail)
        if (c == '/')
            c = '\\';
    if (tail.empty())
        tail = "\\";
    if (trailing && tail.back() != '\\')
        tail += '\\';
    tail = Format::Utf8ToAnsi(tail);
    if (best_letter == 0)
        return tail;  // no drive holds it: a path from the root
    return std::string(1, best_letter) + ":" + tail;
}

void FileSystem::SetDrive(char letter, const char* root)
{
    if (!IsAsciiLetter(letter)) {
        Error::SetLastError(Error::INVALID_PARAMETER);
        return;
    }
    Drives().Set(letter, root);
    Error::SetLastError(Error::SUCCESS);
}

} // namespace Ostrel