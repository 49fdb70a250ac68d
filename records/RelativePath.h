#ifndef VELLUMENT_RECORDS_RELATIVEPATH_H
#define VELLUMENT_RECORDS_RELATIVEPATH_H

#include <vellument/CPathHandling.h>

// Adds a path's relative form, as convert_path_to_relative makes it ("" stays ""; else ".\" and
// the tail after the company directory's cut), to a PackedText builder without a string of its own.
template <typename Builder>
void add_relative_path(Builder& texts, const char* path)
{
    if (*path == '\0') {
        texts.add("", "");
        return;
    }
    const int cut = CPathHandling::find_company_dir_end(path);
    texts.add(".\\", cut >= 0 ? path + cut + 1 : path);
}

#endif
