#ifndef VELLUMENT_FORMCODES_H
#define VELLUMENT_FORMCODES_H

#include <string>

#include <vellument/VellumentTypes.h>
#include <vellument/export.h>

// Category and subcategory of a product in the task list; both point at text that lives as long
// as the library, or are empty.
struct tasklist_category_info {
    const char* category;
    const char* subcategory;
};

// Form type string ("W-2_SSA", "1099-NEC", ...) to product; 99 when unknown.
VELLUMENT_API Vellument::FORM_TYPES get_form_type_from_string(const char* form_type);
// Middle of a vellument's file name; "Unknown" for a product without one.
VELLUMENT_API std::string get_vellument_name_middle(Vellument::FORM_TYPES type);
// Both strings empty for a form type the task list doesn't know.
VELLUMENT_API tasklist_category_info get_task_list_category_info(const char* form_type);
VELLUMENT_API bool form_type_is_1099(const char* form_type);
// Code from a file name ("W2", "M", "T5", ...) to form type string; empty when unknown.
VELLUMENT_API std::string convert_form_code_to_form_type_string(const char* code);
// Numeric local code to its two-letter code; any other input comes back as it is.
VELLUMENT_API std::string convert_local_code(const char* code);

#endif
