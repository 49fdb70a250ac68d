#ifndef VELLUMENT_VELLUMENTTYPES_H
#define VELLUMENT_VELLUMENTTYPES_H

// The enumerations of the record model. Each has a fixed underlying type, so any 32-bit number
// read from an older document can be held, also one that has no text.

#include <string>

namespace Vellument {

// The kind of a transaction.
enum ActionType : int {
    ACTION_NONE = 0,
    ACTION_FILING = 1,
    ACTION_PRINTING = 2,
    ACTION_CORRECTION = 3,
    ACTION_EDIT = 4,
    ACTION_STATUS_CHANGE = 5,
    ACTION_SERVER_DELETION = 6,
    ACTION_RELOAD = 7,
    ACTION_USER_EDIT = 8,
    ACTION_SERVER_DOWNLOAD = 9,
    ACTION_RECOVER = 10,
    ACTION_BUG_FIX = 11,
    ACTION_ORPHAN_EMPLOYER_OR_PAYER = 12,
};

// What a filing or a copy addresses.
enum FILING_TYPE : int {
    FILING_TYPE_UNKNOWN = 0,
    FILING_TYPE_FEDERAL = 1,
    FILING_TYPE_STATE = 2,
    FILING_TYPE_LOCAL = 3,
    FILING_TYPE_EMPLOYEE = 4,
    FILING_TYPE_EMPLOYER = 5,
    FILING_TYPE_REVIEW = 6,
    FILING_TYPE_RECIPIENT = 7,
    FILING_TYPE_PAYER = 8,
};

// The kind of one form of a filing.
enum FORM_TYPE : int {
    FORM_TYPE_UNKNOWN = 0,
    FORM_TYPE_W2 = 1,
    FORM_TYPE_W3 = 2,
    FORM_TYPE_NOTICE = 3,
    FORM_TYPE_1099 = 4,
    FORM_TYPE_1096 = 5,
    FORM_TYPE_INSTRUCTIONS = 6,
    FORM_TYPE_DIVIDER = 7,
    FORM_TYPE_W2C = 8,
    FORM_TYPE_W3C = 9,
    FORM_TYPE_T4 = 20,
    FORM_TYPE_T4_SUMMARY = 21,
    FORM_TYPE_T5018 = 22,
    FORM_TYPE_T5018_SUMMARY = 23,
    FORM_TYPE_RL1 = 24,
    FORM_TYPE_RL1_SUMMARY = 25,
    FORM_TYPE_ACA_RECIPIENT = 30,
    FORM_TYPE_ACA_SUMMARY = 31,
    FORM_TYPE_ACA_NOTICE = 32,
};

// One value per form, not a set of bits.
enum FORM_FLAGS : int {
    FORM_FLAGS_NONE = 0,
    FORM_FLAGS_BACKGROUND = 1,
    FORM_FLAGS_EDITABLE = 2,
    FORM_FLAGS_READ_ONLY = 3,
    FORM_FLAGS_RECORD = 4,
};

// What a finished form does to the histories of its copy.
enum FORM_COMPLETION : int {
    FORM_COMPLETION_REPLACE = 0,
    FORM_COMPLETION_APPEND = 1,
};

// The extension that a vellument's file name gets.
enum EXTENSION_TYPES : int {
    EXTENSION_VLM = 0,
    EXTENSION_TLM = 1,
};

// A whole form product, found from its form type string.
enum FORM_TYPES : int {
    FORM_TYPES_W2 = 0,
    FORM_TYPES_1099_MISC = 1,
    FORM_TYPES_1099_DIV = 2,
    FORM_TYPES_1099_INT = 3,
    FORM_TYPES_1099_R = 4,
    FORM_TYPES_1099_PATR = 5,
    FORM_TYPES_1099_W2G = 6,
    FORM_TYPES_1099_S = 7,
    FORM_TYPES_1099_1098 = 8,
    FORM_TYPES_1099_NEC = 9,
    FORM_TYPES_T4 = 10,
    FORM_TYPES_T5018 = 11,
    FORM_TYPES_RL1 = 12,
    FORM_TYPES_ACA_B = 13,
    FORM_TYPES_ACA_C = 14,
    FORM_TYPES_1099_K = 15,
    FORM_TYPES_W2_VI = 16,
    FORM_TYPES_W2_GU = 17,
    FORM_TYPES_W2_AS = 18,
    FORM_TYPES_W2_PR = 19,
    FORM_TYPES_UNKNOWN = 99,
};

// Bits of the package choice (a plain int): employee is two bits, always together.
enum PACKAGE_CHOICE_BITS : int {
    PACKAGE_CHOICE_NONE = 0,
    PACKAGE_CHOICE_FEDERAL = 1,
    PACKAGE_CHOICE_STATE = 2,
    PACKAGE_CHOICE_EMPLOYEE = 12,
    PACKAGE_CHOICE_COMPLETE = 15,
    PACKAGE_CHOICE_LOCAL = 16,
};

} // namespace Vellument

#endif
