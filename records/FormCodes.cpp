#include <vellument/FormCodes.h>

#include <map>
#include <set>
#include <stdexcept>

#include <vellument/Ostrel_Format.h>

using Vellument::FORM_TYPES;

namespace {

// The tables are built on first use and only read afterwards. Lookups are exact and
// case-sensitive; a miss is the map's out_of_range, caught in the function that asked.

const std::map<std::string, FORM_TYPES>& form_types_by_string()
{
    static const std::map<std::string, FORM_TYPES> table = {
        {"W2", Vellument::FORM_TYPES_W2},
        {"W-2_SSA", Vellument::FORM_TYPES_W2},
        {"1099-MISC", Vellument::FORM_TYPES_1099_MISC},
        {"1099-DIV", Vellument::FORM_TYPES_1099_DIV},
        {"1099-INT", Vellument::FORM_TYPES_1099_INT},
        {"1099-R", Vellument::FORM_TYPES_1099_R},
        {"1099-PATR", Vellument::FORM_TYPES_1099_PATR},
        {"1099-W2G", Vellument::FORM_TYPES_1099_W2G},
        {"1099-S", Vellument::FORM_TYPES_1099_S},
        {"1099-1098", Vellument::FORM_TYPES_1099_1098},
        {"1099-NEC", Vellument::FORM_TYPES_1099_NEC},
        {"T4", Vellument::FORM_TYPES_T4},
        {"T4_OFFICIAL_FORM", Vellument::FORM_TYPES_T4},
        {"T5018", Vellument::FORM_TYPES_T5018},
        {"T5018_OFFICIAL_FORM", Vellument::FORM_TYPES_T5018},
        {"RL1", Vellument::FORM_TYPES_RL1},
        {"RL-1_OFFICIAL_FORM", Vellument::FORM_TYPES_RL1},
        {"1099-K", Vellument::FORM_TYPES_1099_K},
        {"W-2_SSA_VI", Vellument::FORM_TYPES_W2_VI},
        {"W-2_SSA_GU", Vellument::FORM_TYPES_W2_GU},
        {"W-2_SSA_AS", Vellument::FORM_TYPES_W2_AS},
        {"W-2_SSA_PR", Vellument::FORM_TYPES_W2_PR},
    };
    return table;
}

// Territory W-2s (16 to 19) have no middle of their own and fall to "Unknown".
const std::map<int, std::string>& name_middles()
{
    static const std::map<int, std::string> table = {
        {Vellument::FORM_TYPES_W2, "W2_"},
        {Vellument::FORM_TYPES_1099_MISC, "M_"},
        {Vellument::FORM_TYPES_1099_DIV, "D_"},
        {Vellument::FORM_TYPES_1099_INT, "I_"},
        {Vellument::FORM_TYPES_1099_R, "R_"},
        {Vellument::FORM_TYPES_1099_PATR, "P_"},
        {Vellument::FORM_TYPES_1099_W2G, "G_"},
        {Vellument::FORM_TYPES_1099_S, "S_"},
        {Vellument::FORM_TYPES_1099_1098, "8_"},
        {Vellument::FORM_TYPES_1099_NEC, "N_"},
        {Vellument::FORM_TYPES_T4, "T4_"},
        {Vellument::FORM_TYPES_T5018, "T5_"},
        {Vellument::FORM_TYPES_RL1, "RL1_"},
        {Vellument::FORM_TYPES_ACA_B, "ACAB_"},
        {Vellument::FORM_TYPES_ACA_C, "ACAC_"},
        {Vellument::FORM_TYPES_1099_K, "K_"},
        {Vellument::FORM_TYPES_UNKNOWN, ""},
    };
    return table;
}

const std::map<std::string, tasklist_category_info>& task_list_categories()
{
    static const std::map<std::string, tasklist_category_info> table = {
        {"W2", {"W2", "US"}},
        {"W-2_SSA", {"W2", "US"}},
        {"W-2_SSA_PR", {"W2", "PR"}},
        {"W-2_SSA_GU", {"W2", "GU"}},
        {"W-2_SSA_AS", {"W2", "AS"}},
        {"W-2_SSA_MP", {"W2", "MP"}},
        {"W-2_SSA_VI", {"W2", "VI"}},
        {"1099-MISC", {"1099", "MISC"}},
        {"1099-R", {"1099", "R"}},
        {"1099-DIV", {"1099", "DIV"}},
        {"1099-INT", {"1099", "INT"}},
        {"1099-PATR", {"1099", "PATR"}},
        {"1099-W2G", {"1099", "W2G"}},
        {"1099-S", {"1099", "S"}},
        {"1099-1098", {"1099", "1098"}},
        {"1099-NEC", {"1099", "NEC"}},
        {"1099-K", {"1099", "K"}},
    };
    return table;
}

// T5018 is handled as a 1099 product on purpose.
const std::set<std::string>& forms_1099()
{
    static const std::set<std::string> table = {
        "1099-1098", "1099-DIV", "1099-INT", "1099-K", "1099-MISC", "1099-NEC",
        "1099-PATR", "1099-R", "1099-S", "1099-W2G", "T5018", "T5018_OFFICIAL_FORM",
    };
    return table;
}

const std::map<std::string, std::string>& form_type_strings_by_code()
{
    static const std::map<std::string, std::string> table = {
        {"W2", "W-2_SSA"},
        {"M", "1099-MISC"},
        {"R", "1099-R"},
        {"D", "1099-DIV"},
        {"I", "1099-INT"},
        {"P", "1099-PATR"},
        {"G", "1099-W2G"},
        {"S", "1099-S"},
        {"8", "1099-1098"},
        {"N", "1099-NEC"},
        {"K", "1099-K"},
        {"T4", "T4"},
        {"T5", "T5018"},
    };
    return table;
}

const std::map<std::string, std::string>& local_codes()
{
    static const std::map<std::string, std::string> table = {
        {"2044", "ZZ"},
        {"2045", "ZY"},
        {"2046", "ZX"},
        {"2047", "ZW"},
        {"2048", "ZV"},
        {"2049", "ZU"},
        {"2050", "ZT"},
        {"2889", "ZS"},
        {"5014", "ZR"},
        {"5053", "ZQ"},
        {"2341", "ZP"},
    };
    return table;
}

} // namespace

FORM_TYPES get_form_type_from_string(const char* form_type)
{
    try {
        return form_types_by_string().at(Ostrel::Format::TextOf(form_type));
    } catch (const std::out_of_range&) {
        return Vellument::FORM_TYPES_UNKNOWN;
    }
}

std::string get_vellument_name_middle(FORM_TYPES type)
{
    try {
        return name_middles().at(static_cast<int>(type));
    } catch (const std::out_of_range&) {
        return "Unknown";
    }
}

tasklist_category_info get_task_list_category_info(const char* form_type)
{
    try {
        return task_list_categories().at(Ostrel::Format::TextOf(form_type));
    } catch (const std::out_of_range&) {
        return tasklist_category_info{"", ""};
    }
}

bool form_type_is_1099(const char* form_type)
{
    return form_type != nullptr && forms_1099().count(form_type) != 0;
}

std::string convert_form_code_to_form_type_string(const char* code)
{
    try {
        return form_type_strings_by_code().at(Ostrel::Format::TextOf(code));
    } catch (const std::out_of_range&) {
        return std::string();
    }
}

std::string convert_local_code(const char* code)
{
    const std::string text = Ostrel::Format::TextOf(code);
    try {
        return local_codes().at(text);
    } catch (const std::out_of_range&) {
        return text;
    }
}
