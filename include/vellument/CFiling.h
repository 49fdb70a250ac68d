#ifndef VELLUMENT_CFILING_H
#define VELLUMENT_CFILING_H

#include <string>

#include <vellument/CFilingBase.h>
#include <vellument/export.h>

class CForm;
class CCopy;

namespace oxml {
class TextWriter;
}

// One addressed unit of a package with its forms and the request flags that steer a run. Most of
// its own fields live in memory only; the document holds the success flags and two counters.
class VELLUMENT_API CFiling : public CFilingBase {
public:
    CFiling();
    // Base copy (mailed false), the name, flags and counters; each form is copied as a
    // CForm(const CFormBase*), so the forms' run fields are not carried over.
    explicit CFiling(const CFiling* source);
    // Brings a status unit back: mailed is taken, efiled and date are not; one form per history.
    explicit CFiling(const CCopy* copy);
    explicit CFiling(COXMLNode* node);
    ~CFiling() override;

    CFiling(const CFiling&) = delete;
    CFiling& operator=(const CFiling&) = delete;

    // A "Filing" element with its forms; FilingName is not written.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    attributeDicList getAndFillMap() const;

    // Forms: add_form takes ownership, get_form_at lends. A bad index raises
    // std::invalid_argument and leaves the forms as they were.
    int get_form_count() const;
    CForm* get_form_at(int index) const;
    void add_form(CForm* form) const;
    // Deletes the form.
    void delete_form_at(int index) const;
    // Hands the form back: the caller owns it from then on.
    void remove_form_at(int index) const;
    void delete_all_forms() const;

    void increment_print_success_count() const;

    std::string get_filing_name() const;
    void set_filing_name(const char* name) const;

    bool get_records_flag() const;
    void set_records_flag(bool flag) const;
    bool get_efiled_successful_flag() const;
    void set_efiled_successful_flag(bool flag) const;
    bool get_printed_successful_flag() const;
    void set_printed_successful_flag(bool flag) const;
    bool get_records_successful_flag() const;
    void set_records_successful_flag(bool flag) const;

    bool get_regenerate_state_w2() const;
    void set_regenerate_state_w2(bool flag) const;
    bool get_reprint_state_w2() const;
    void set_reprint_state_w2(bool flag) const;
    bool get_reprint_local_w2() const;
    void set_reprint_local_w2(bool flag) const;
    bool get_regenerate_employee_w2() const;
    void set_regenerate_employee_w2(bool flag) const;
    bool get_reprint_select_employees() const;
    void set_reprint_select_employees(bool flag) const;
    bool get_reprint_employer_w2() const;
    void set_reprint_employer_w2(bool flag) const;
    bool get_reprint_payer_1099() const;
    void set_reprint_payer_1099(bool flag) const;
    bool get_regenerate_recipient_1099() const;
    void set_regenerate_recipient_1099(bool flag) const;
    bool get_reprint_select_recipients() const;
    void set_reprint_select_recipients(bool flag) const;
    bool get_force_print_flag() const;
    void set_force_print_flag(bool flag) const;

    // Counters. Payroll forms speak of employees, 1099 forms of recipients: the two names of a
    // counter act on one field.
    int get_employee_count() const;
    void set_employee_count(int count) const;
    int get_recipient_count() const;
    void set_recipient_count(int count) const;

    int get_ew2_employee_count() const;
    void set_ew2_employee_count(int count) const;

    int get_state_employee_count() const;
    void set_state_employee_count(int count) const;
    int get_state_recipient_count() const;
    void set_state_recipient_count(int count) const;

    int get_local_employee_count() const;
    void set_local_employee_count(int count) const;

    int get_corrected_employee_count() const;
    void set_corrected_employee_count(int count) const;
    int get_corrected_recipient_count() const;
    void set_corrected_recipient_count(int count) const;

    int get_deleted_employee_count() const;
    void set_deleted_employee_count(int count) const;
    int get_deleted_recipient_count() const;
    void set_deleted_recipient_count(int count) const;

    int get_added_employee_count() const;
    void set_added_employee_count(int count) const;
    int get_added_recipient_count() const;
    void set_added_recipient_count(int count) const;

    int get_print_success_count() const;
    void set_print_success_count(int count) const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
    template <class Writer>
    void write_attributes(Writer& writer) const;
    struct Record;
    Record* m_filing;
};

#endif
