#ifndef VELLUMENT_FUZZ_WORK_DIR_H
#define VELLUMENT_FUZZ_WORK_DIR_H

// A private directory under /tmp for the files of one fuzz target ("/tmp/fuzz-<target>-XXXXXX");
// the target removes what it writes there when it exits.

#include <cstdlib>
#include <string>

inline std::string make_fuzz_work_dir(const char* target)
{
    std::string name = std::string("/tmp/fuzz-") + target + "-XXXXXX";
    if (mkdtemp(&name[0]) == nullptr)
        std::abort();
    return name;
}

#endif
