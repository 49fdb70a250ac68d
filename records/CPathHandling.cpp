#include <vellument/CPathHandling.h>

#include <climits>

namespace {

// The company directory of the process; empty until a vellument opens.
std::string& company_dir()
{
    static std::string dir;
    return dir;
}

// Replaces every occurrence of what, scanning left to right; a replacement is not searched again.
std::string replace_all(const std::string& text, const std::string& what, const std::string& with)
{
    std::string result;
    result.reserve(text.size());
    std::string::size_type from = 0;
    for (;;) {
        std::string::size_type at = text.find(what, from);
        if (at == std::string::npos)
            break;
        result.append(text, from, at - from);
        result += with;
        from = at + what.size();
    }
    result.append(text, from, std::string::npos);
    return result;
}

std::string as_string(const char* path)
{
    return path != nullptr ? std::string(path) : std::string();
}

} // namespace

std::string CPathHandling::get_company_dir()
{
    return company_dir();
}

void CPathHandling::set_company_dir(const char* path)
{
    // Opening upper-cases the vellument's path, so only the capital forms mark a sub-directory.
    std::string dir = replace_all(as_string(path), "\\HISTORIES\\", "\\");
    company_dir() = replace_all(dir, "\\DRAFTS\\", "\\");
}

int CPathHandling::find_company_dir_end(const char* path)
{
    const std::string text = as_string(path);
    std::string::size_type at = text.find("\\Histories\\");
    if (at == std::string::npos)
        at = text.find("\\Drafts\\");
    if (at == std::string::npos)
        at = text.rfind('\\');
    if (at == std::string::npos || at > static_cast<std::string::size_type>(INT_MAX))
        return -1;
    return static_cast<int>(at);
}

std::string CPathHandling::convert_path_to_relative(const char* path)
{
    const std::string text = as_string(path);
    if (text.empty())
        return std::string();
    const int end = find_company_dir_end(text.c_str());
    return ".\\" + text.substr(static_cast<std::string::size_type>(end + 1));
}

std::string CPathHandling::convert_path_to_absolute(const char* path)
{
    const std::string text = as_string(path);
    // Any ".\" counts, wherever it stands: a directory name ending in a dot turns an absolute path
    // into a relative one. Stored documents depend on this, so it stays.
    if (text.find(".\\") == std::string::npos)
        return text;
    return company_dir() + text.substr(2);
}
