#ifndef VELLUMENT_CPACKAGE_H
#define VELLUMENT_CPACKAGE_H

#include <string>

#include <vellument/CStatusBase.h>
#include <vellument/DateTime.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

class CFiling;

namespace oxml {
class TextWriter;
}

// What was prepared and chosen for one step of the trail: the counters of changes, a few flags,
// the builder version, the invoice amount, the date and the filings of the step.
class VELLUMENT_API CPackage : public CStatusBase {
public:
    // The package date is the current date-time.
    CPackage();
    // Deep copy: every field, and a CFiling(const CFiling*) of each filing. A null source gives
    // the defaults.
    explicit CPackage(const CPackage* source);
    // Reads the package attributes and each Filing child of the node, in document order.
    // A missing PackageDate keeps the current date-time. A null node gives the defaults.
    explicit CPackage(COXMLNode* node);
    // Deletes the filings.
    ~CPackage();

    CPackage(const CPackage&) = delete;
    CPackage& operator=(const CPackage&) = delete;

    // A "Package" element. The package's own attributes are written only when it has filings;
    // PackageDate only when its day count isn't zero. Then the filings' elements.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    using CStatusBase::create_xml_node;
    attributeDicList getAndFillMap() const;

    int get_filing_count() const;
    // Lent. A bad index raises std::invalid_argument.
    CFiling* get_filing_at(int index) const;
    // The package takes ownership; null is ignored.
    void add_filing(CFiling* filing) const;
    void delete_filings() const;

    int get_deleted_employee_count() const;
    void set_deleted_employee_count(int count) const;
    int get_deleted_recipient_count() const;
    void set_deleted_recipient_count(int count) const;

    int get_added_employee_count() const;
    void set_added_employee_count(int count) const;
    int get_added_recipient_count() const;
    void set_added_recipient_count(int count) const;

    int get_corrected_ew2_employee_count() const;
    void set_corrected_ew2_employee_count(int count) const;
    int get_added_ew2_employee_count() const;
    void set_added_ew2_employee_count(int count) const;
    int get_deleted_ew2_employee_count() const;
    void set_deleted_ew2_employee_count(int count) const;

    // Memory only: neither the document nor the database keeps it.
    bool get_call_efiler_flag() const;
    void set_call_efiler_flag(bool flag) const;
    bool get_web_service_unavailable_flag() const;
    void set_web_service_unavailable_flag(bool flag) const;
    bool get_additional_filing_mode_flag() const;
    void set_additional_filing_mode_flag(bool flag) const;

    std::string get_builder_version() const;
    void set_builder_version(const char* version) const;
    // Kept as text.
    std::string get_invoice_amount() const;
    void set_invoice_amount(const char* amount) const;

    CDateTime get_package_date() const;
    void set_package_date(CDateTime date) const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
    template <class Writer>
    void write_attributes(Writer& writer) const;
    struct Record;
    Record* m_package;
};

#endif
