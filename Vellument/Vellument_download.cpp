// Bringing the server's copy of a vellument down in place of the local file.

#include <vellument/ServerFunctions.h>

#include <cstdio>
#include <ctime>
#include <ios>
#include <string>

#include <vellument/eFileSOAPS.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>

#include "Ostrel/LogMacros.h"

using Ostrel::Format::TextOf;

namespace {

// The local time as YYYYMMDDhhmmss.
std::string time_stamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::snprintf(stamp, sizeof stamp, "%04d%02d%02d%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return stamp;
}

} // namespace

bool skip_download(const char* filing_year, const char* form_type)
{
    const std::string year = TextOf(filing_year);
    if ((year == "2020" || year == "2021") && TextOf(form_type) == "T5018") {
        VLOG(3, "[Vellument] Skip T5018 Download For 2021\n");
        return true;
    }
    return false;
}

void download_vellument(const char* filing_ein, const char* form_type, const char* filing_year, const char* path)
{
    VLOG(3, "[Vellument] Downloading Vellument!\n");
    int error = 0;
    const std::string text =
        eFileSOAPS::GetVellument(TextOf(filing_ein).c_str(), TextOf(form_type).c_str(), TextOf(filing_year).c_str(),
                                 error);
    if (error != 0)
        return;
    VLOG(3, "[Vellument] Successfully Downloaded Vellument!\n");

    const std::string target = TextOf(path);
    const std::string backup = target + "_" + time_stamp() + ".Backup";
    VLOG(3, "[Vellument] Renaming Previous Vellument!\n");
    // The previous file is set aside by a copy that never replaces an existing name, and stays
    // where it is until the new one takes its place whole: a crash leaves one or the other.
    if (!Ostrel::FileSystem::CopyFileA(target.c_str(), backup.c_str(), true))
        VLOG(2, "[Vellument] Error Saving New Vellument!\n");

    VLOG(3, "[Vellument] Saving New Vellument!\n");
    if (!Ostrel::FileSystem::WriteFileAtomic(target.c_str(), text.data(), text.size()))
        throw std::ios_base::failure("download_vellument: cannot write " + target);
}
