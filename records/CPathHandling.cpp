#include <vellument/CPathHandling.h>

#include <climits>
#include <cstring>

#include <vellument/Ostrel_Format.h>

namespace {

// The company directory of the process; empty until a vellument opens.
std::string& company_dir()
{
    static std::string dir;
    return dir;
}

} // namespace

std::string CPathHandling::get_company_dir()
{
    return company_dir();
}

void CPathHandling::set_company_dir(const char* path)
{
    // Opening upper-cases the vellument's path, so only the capital forms mark a sub-directory.
    std::string dir = Ostrel::Format::ReplaceAll(Ostrel::Format::TextOf(path), "\\HISTORIES\\", "\\");
    company_dir() = Ostrel::Format::ReplaceAll(dir, "\\DRAFTS\\", "\\");
}

namespace {

// Whether the text at p begins with the word; stops at the text's end.
bool begins_with(const char* p, const char* word)
{
    for (; *word != '\0'; ++p, ++word)
        if (*p != *word)
            return false;
    return true;
}

// The cut of find_company_dir_end, without copying the text: the first "\Histories\", else the
// first "\Drafts\", else the last backslash. Most paths hold the first, which the library's
// search finds fastest; the others come from one walk over the text.
const char* company_dir_end(const char* text)
{
    const char* at = std::strstr(text, "\\Histories\\");
    if (at == nullptr) {
        const char* drafts = nullptr;
        for (const char* p = text; *p != '\0'; ++p) {
            if (*p != '\\')
                continue;
            if (drafts == nullptr && begins_with(p + 1, "Drafts\\"))
                drafts = p;
            at = p;
        }
        if (drafts != nullptr)
            at = drafts;
    }
    if (at != nullptr && static_cast<std::size_t>(at - text) > static_cast<std::size_t>(INT_MAX))
        return nullptr;
    return at;
}

} // namespace

int CPathHandling::find_company_dir_end(const char* path)
{
    if (path == nullptr)
        return -1;
    const char* at = company_dir_end(path);
    return at != nullptr ? static_cast<int>(at - path) : -1;
}

std::string CPathHandling::convert_path_to_relative(const char* path)
{
    if (path == nullptr || *path == '\0')
        return std::string();
    const char* at = company_dir_end(path);
    const char* tail = at != nullptr ? at + 1 : path;
    const std::size_t tail_length = std::strlen(tail);
    std::string result;
    result.reserve(2 + tail_length);
    result.append(".\\", 2);
    result.append(tail, tail_length);
    return result;
}

std::string CPathHandling::convert_path_to_absolute(const char* path)
{
    if (path == nullptr)
        return std::string();
    // Any ".\" counts, wherever it stands: a directory name ending in a dot turns an absolute path
    // into a relative one. Stored documents depend on this, so it stays.
    if (std::strstr(path, ".\\") == nullptr)
        return std::string(path);
    const std::string& dir = company_dir();
    const std::size_t tail_length = std::strlen(path + 2);
    std::string result;
    result.reserve(dir.size() + tail_length);
    result.append(dir);
    result.append(path + 2, tail_length);
    return result;
}
