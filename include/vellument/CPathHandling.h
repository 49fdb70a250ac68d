#ifndef VELLUMENT_CPATHHANDLING_H
#define VELLUMENT_CPATHHANDLING_H

#include <string>

#include <vellument/export.h>

// Keeps the process-wide company directory and converts Windows paths between the absolute form
// and the company-relative form ".\tail". The directory is unguarded: one vellument at a time.
class VELLUMENT_API CPathHandling {
public:
    static std::string get_company_dir();
    // Stores the path less any "\HISTORIES\" or "\DRAFTS\" (capitals only), so the directory of a
    // vellument that lies in one of those sub-directories gives the company directory.
    static void set_company_dir(const char* path);
    // Index of the first "\Histories\", else of the first "\Drafts\", else of the last backslash;
    // -1 when the path has no backslash.
    static int find_company_dir_end(const char* path);
    static std::string convert_path_to_relative(const char* path);
    static std::string convert_path_to_absolute(const char* path);
};

#endif
