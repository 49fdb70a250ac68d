#ifndef VELLUMENT_CFORM_H
#define VELLUMENT_CFORM_H

#include <string>

#include <vellument/CFormBase.h>
#include <vellument/export.h>

namespace oxml {
class TextWriter;
}

// One form of a filing on the preparing side, with the fields of one run through the viewer.
// Only the viewer result code and the printed result reach the document.
class VELLUMENT_API CForm : public CFormBase {
public:
    // Completion Replace, as a form made in memory replaces the earlier ones of its type.
    CForm();
    // Copies only the form base part and sets completion to Replace; the run fields start at
    // their defaults. This is also how a CForm is copied.
    explicit CForm(const CFormBase* source);
    // Form base read plus ViewerResultCode and ResultPrinted; completion stays Append.
    explicit CForm(COXMLNode* node);
    ~CForm();

    CForm(const CForm&) = delete;
    CForm& operator=(const CForm&) = delete;

    // A "Form" element: the form base attributes, then ViewerResultCode and ResultPrinted.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    attributeDicList getAndFillMap() const;

    std::string get_prior_exml_location() const;
    void set_prior_exml_location(const std::string& path) const;

    std::string get_payer_kind_string() const;
    void set_payer_kind_string(const std::string& kind) const;

    std::string get_form_dir() const;
    // An empty text leaves the value as it was.
    void set_form_dir(const std::string& dir) const;

    std::string get_form_set() const;
    void set_form_set(const std::string& set) const;

    std::string get_viewer_result_code() const;
    void set_viewer_result_code(const std::string& code) const;

    std::string get_paper_warning() const;
    void set_paper_warning(const std::string& warning) const;

    int get_task_number() const;
    void set_task_number(int number) const;

    int get_employee_count() const;
    void set_employee_count(int count) const;

    bool get_result_printed() const;
    void set_result_printed(bool printed) const;

    bool get_efiled_successful_flag() const;
    void set_efiled_successful_flag(bool flag) const;

    bool get_printed_successful_flag() const;
    void set_printed_successful_flag(bool flag) const;

    bool get_records_successful_flag() const;
    void set_records_successful_flag(bool flag) const;

    bool get_force_print() const;
    void set_force_print(bool flag) const;

    bool get_special_paper() const;
    void set_special_paper(bool flag) const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
    template <class Writer>
    void write_attributes(Writer& writer) const;
    struct Record;
    Record* m_form;
};

#endif
