// Feeds bytes to the settings reader and writer as a file, and to the date-time parser as text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include <vellument/DateTime.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/Ostrel_Log.h>

#include "fuzz/work_dir.h"

namespace {

// A private directory for the settings file, removed when the fuzzer exits.
struct WorkDir {
    std::string dir;
    std::string path;
    WorkDir()
    {
        dir = make_fuzz_work_dir("inifile");
        path = dir + "/Settings.ini";
        Ostrel::Log::SetLevel(0);
    }
    ~WorkDir()
    {
        std::remove(path.c_str());
        rmdir(dir.c_str());
    }
};

const std::string& settings_path()
{
    static WorkDir work;
    return work.path;
}

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

void fuzz_date(const std::string& text)
{
    CDateTime dt;
    const bool ok = dt.parse(text.c_str());
    const std::string stored = dt.format("%m/%d/%Y %H:%M:%S");
    dt.format("%A %B %j %U %c %x %X %Z %%");
    if (ok) {
        // A parsed value writes a text that reads back to the same text.
        CDateTime back;
        check(back.parse(stored.c_str()));
        check(back.format("%m/%d/%Y %H:%M:%S") == stored);
    } else {
        check(dt.get_status() == CDateTime::invalid);
        check(dt.get_days() == 0.0 || dt.get_days() == -1.0);
    }
}

void fuzz_settings(const uint8_t* data, size_t size)
{
    const std::string& path = settings_path();
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        return;
    if (size > 0)
        std::fwrite(data, 1, size, f);
    std::fclose(f);

    char buffer[512];
    for (const char* key : {"Key", "TestMode", "DecryptFiles", ""})
        Ostrel::Profile::GetPrivateProfileStringA("VELLUMENT", key, "dflt", buffer, sizeof buffer, path.c_str());
    Ostrel::Profile::GetPrivateProfileStringA(nullptr, nullptr, "", buffer, sizeof buffer, path.c_str());
    Ostrel::Profile::GetPrivateProfileStringA("DEBUG", nullptr, "", buffer, 7, path.c_str());
    _GetValue(path, "DEBUG", "TestMode", "N", true);

    // What is written reads back, and what is deleted is gone. One write a run: each is synced
    // to disk, which is what the fuzzer's time goes to.
    switch (size > 0 ? data[0] % 3 : 0) {
    case 0:
        if (Ostrel::Profile::WritePrivateProfileStringA("VELLUMENT", "Key", "written value", path.c_str())) {
            const unsigned long n =
                Ostrel::Profile::GetPrivateProfileStringA("vellument", "KEY", "", buffer, sizeof buffer, path.c_str());
            check(std::string(buffer, n) == "written value");
        }
        break;
    case 1:
        if (Ostrel::Profile::WritePrivateProfileStringA("VELLUMENT", "Key", nullptr, path.c_str())) {
            Ostrel::Profile::GetPrivateProfileStringA("VELLUMENT", "Key", "gone", buffer, sizeof buffer, path.c_str());
            check(std::strcmp(buffer, "gone") == 0);
        }
        break;
    default:
        if (Ostrel::Profile::WritePrivateProfileStringA("VELLUMENT", nullptr, nullptr, path.c_str())) {
            Ostrel::Profile::GetPrivateProfileStringA("VELLUMENT", "Key", "gone", buffer, sizeof buffer, path.c_str());
            check(std::strcmp(buffer, "gone") == 0);
        }
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz_date(std::string(reinterpret_cast<const char*>(data), size));
    fuzz_settings(data, size);
    return 0;
}
