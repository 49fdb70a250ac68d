#ifndef VELLUMENT_TESTS_TEST_UTIL_H
#define VELLUMENT_TESTS_TEST_UTIL_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace testutil {

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
public:
    TempDir()
    {
        std::string tmpl = std::filesystem::temp_directory_path().string() + "/vlm-XXXXXX";
        if (mkdtemp(tmpl.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        path_ = tmpl;
    }
    ~TempDir()
    {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& relative) const { return path_ + "/" + relative; }

private:
    std::string path_;
};

inline std::string read_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

#ifdef VELLUMENT_TEST_DATA_DIR
// A file of the tests' data directory.
inline std::string data_file(const char* name)
{
    return (std::filesystem::path(VELLUMENT_TEST_DATA_DIR) / name).string();
}
#endif

inline void write_file(const std::string& path, const std::string& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace testutil

#endif
