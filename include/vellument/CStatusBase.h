#ifndef VELLUMENT_CSTATUSBASE_H
#define VELLUMENT_CSTATUSBASE_H

#include <string>

#include <vellument/attributeDic.h>
#include <vellument/export.h>

class COXMLNode;
class COXMLDocument;

// What a package and a status share: the counters of people on the forms, the package choice and
// the path of the e-file package. Payroll forms speak of employees and 1099 forms of recipients:
// each pair of such accessors works on one field.
// Not polymorphic: never delete a CPackage or a CStatus through a CStatusBase pointer.
class VELLUMENT_API CStatusBase {
public:
    CStatusBase();
    // Copies the numbers; the kxn path is kept in the absolute form of the source's path.
    // A null source gives the defaults.
    explicit CStatusBase(const CStatusBase* source);
    // Reads the counters, the choice and KXNPath (also the older EW2EmployeeCount).
    // A null node gives the defaults.
    explicit CStatusBase(COXMLNode* node);
    ~CStatusBase();

    CStatusBase(const CStatusBase&) = delete;
    CStatusBase& operator=(const CStatusBase&) = delete;

    // The text of a package choice; an unlisted value gives its decimal number.
    static std::string to_package_choice_string(int value);

    // A new element `name` with KXNPath, FilingChoice and the four counters. filing_count has no
    // effect. Null when document or name is null.
    COXMLNode* create_xml_node(COXMLDocument* document, const char* name, int filing_count) const;
    attributeDicList getAndFillMapBase() const;

    int get_employee_count() const;
    void set_employee_count(int count) const;
    int get_recipient_count() const;
    void set_recipient_count(int count) const;

    int get_state_employee_count() const;
    void set_state_employee_count(int count) const;
    int get_state_recipient_count() const;
    void set_state_recipient_count(int count) const;

    int get_local_employee_count() const;
    void set_local_employee_count(int count) const;
    int get_local_recipient_count() const;
    void set_local_recipient_count(int count) const;

    int get_corrected_employee_count() const;
    void set_corrected_employee_count(int count) const;
    int get_corrected_recipient_count() const;
    void set_corrected_recipient_count(int count) const;

    int get_ew2_employee_count() const;
    void set_ew2_employee_count(int count) const;

    // The package choice, bits of Vellument::PACKAGE_CHOICE_BITS.
    int get_filing_options() const;
    void set_filing_options(int options) const;

    // Stored company-relative, given out under the present company directory.
    std::string get_kxn_path() const;
    void set_kxn_path(const char* path) const;

protected:
    // The class's own attributes in file order, to a tree's element writer or to a text writer.
    template <class Writer>
    void write_attributes(Writer& writer) const;

private:
    struct Record;
    Record* m_base;
};

#endif
