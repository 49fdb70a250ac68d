#ifndef VELLUMENT_RECORDS_ENUMTEXT_H
#define VELLUMENT_RECORDS_ENUMTEXT_H

#include <string>

#include <vellument/VellumentTypes.h>
#include <vellument/export.h>

// Text forms of the enumerations as they stand in a document. Lookups are exact and
// case-sensitive; reading also accepts the bare numbers that older documents wrote. Nothing here
// throws: a value or text the tables don't hold becomes the fixed default named beside each. The
// readers take an attribute's text as it comes, without a string of its own; null reads as "".
namespace Vellument {
namespace Text {

VELLUMENT_API std::string action_to_string(ActionType action);                 // "None"
VELLUMENT_API ActionType string_to_action(const std::string& text);            // 0
VELLUMENT_API ActionType string_to_action(const char* text);

VELLUMENT_API std::string filing_type_to_string(FILING_TYPE type);             // "Unknown"
VELLUMENT_API FILING_TYPE string_to_filing_type(const std::string& text);      // 0
VELLUMENT_API FILING_TYPE string_to_filing_type(const char* text);

VELLUMENT_API std::string form_type_to_string(FORM_TYPE type);                 // "Unknown"
VELLUMENT_API FORM_TYPE string_to_form_type(const std::string& text);          // 0
VELLUMENT_API FORM_TYPE string_to_form_type(const char* text);

VELLUMENT_API std::string form_flags_to_string(FORM_FLAGS flags);              // "None"
VELLUMENT_API FORM_FLAGS string_to_form_flags(const std::string& text);        // 0
VELLUMENT_API FORM_FLAGS string_to_form_flags(const char* text);

VELLUMENT_API std::string completion_to_string(FORM_COMPLETION completion);    // "Append"
VELLUMENT_API FORM_COMPLETION string_to_completion(const std::string& text);   // 0

// The package choice is a plain int; an unlisted value survives as its decimal number.
VELLUMENT_API std::string package_choice_to_string(int choice);                // "%d"
VELLUMENT_API int string_to_package_choice(const std::string& text);           // atoi, "" is 0
VELLUMENT_API int string_to_package_choice(const char* text);

} // namespace Text
} // namespace Vellument

#endif
