#include <vellument/CFiling.h>

#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <vellument/AuditUtil.h>
#include <vellument/CCopy.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"
#include "records/InlineList.h"
#include "records/SharedBlock.h"

struct CFiling::Record {
    std::string filing_name;
    bool records_flag = false;
    bool efiled_successful = false;
    bool printed_successful = false;
    bool records_successful = false;
    bool regenerate_state_w2 = false;
    bool reprint_state_w2 = false;
    bool reprint_local_w2 = false;
    bool regenerate_employee_w2 = false;
    bool reprint_select_employees = false;
    bool reprint_employer_w2 = false;
    bool reprint_payer_1099 = false;
    bool regenerate_recipient_1099 = false;
    bool reprint_select_recipients = false;
    bool force_print = false;
    int employee_count = 0;
    int ew2_employee_count = 0;
    int state_employee_count = 0;
    int local_employee_count = 0;
    int corrected_employee_count = 0;
    int deleted_employee_count = 0;
    int added_employee_count = 0;
    int print_success_count = 0;
    InlineList<CForm*, 4> forms;  // owned

    Record() = default;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record()
    {
        for (CForm* form : forms)
            delete form;
    }

    // Everything but the forms.
    void copy_fields(const Record& source)
    {
        filing_name = source.filing_name;
        records_flag = source.records_flag;
        efiled_successful = source.efiled_successful;
        printed_successful = source.printed_successful;
        records_successful = source.records_successful;
        regenerate_state_w2 = source.regenerate_state_w2;
        reprint_state_w2 = source.reprint_state_w2;
        reprint_local_w2 = source.reprint_local_w2;
        regenerate_employee_w2 = source.regenerate_employee_w2;
        reprint_select_employees = source.reprint_select_employees;
        reprint_employer_w2 = source.reprint_employer_w2;
        reprint_payer_1099 = source.reprint_payer_1099;
        regenerate_recipient_1099 = source.regenerate_recipient_1099;
        reprint_select_recipients = source.reprint_select_recipients;
        force_print = source.force_print;
        employee_count = source.employee_count;
        ew2_employee_count = source.ew2_employee_count;
        state_employee_count = source.state_employee_count;
        local_employee_count = source.local_employee_count;
        corrected_employee_count = source.corrected_employee_count;
        deleted_employee_count = source.deleted_employee_count;
        added_employee_count = source.added_employee_count;
        print_success_count = source.print_success_count;
    }

    // Takes the form over even when growing the array fails.
    void append(CForm* form)
    {
        std::unique_ptr<CForm> owned(form);
        forms.push_back(owned.get());
        owned.release();
    }
};

namespace {

void check_index(int index, size_t size)
{
    if (index < 0 || static_cast<size_t>(index) >= size)
        throw std::invalid_argument("CFiling: form index " + std::to_string(index) + " out of range 0.." +
                                    std::to_string(static_cast<long long>(size) - 1));
}

} // namespace

CFiling::CFiling() : CFilingBase(Extra{sizeof(Record)}), m_filing(new (derived_record()) Record) {}

CFiling::CFiling(const CFiling* source)
    : CFilingBase(source, Extra{sizeof(Record)}), m_filing(new (derived_record()) Record)
{
    if (source == nullptr)
        return;
    try {
        m_filing->copy_fields(*source->m_filing);
        // Only the form base part of each form crosses; the run fields start afresh.
        for (const CForm* form : source->m_filing->forms)
            m_filing->append(new CForm(static_cast<const CFormBase*>(form)));
    } catch (...) {
        m_filing->~Record();
        throw;
    }
}

CFiling::CFiling(const CCopy* copy) : CFilingBase(Extra{sizeof(Record)}), m_filing(new (derived_record()) Record)
{
    if (copy == nullptr)
        return;
    try {
        // Efiled and date stay at their defaults: the preparing side starts a new run.
        set_krf_file_location(copy->get_krf_file_location());
        set_corrected_flag(copy->get_corrected_flag());
        set_printed_flag(copy->get_printed_flag());
        set_mailed_flag(copy->get_mailed_flag());
        set_replaceable_flag(copy->get_replaceable_flag());
        set_replacement_flag(copy->get_replacement_flag());
        set_vlid(copy->get_vlid());
        set_identifier(copy->get_identifier());
        set_type(copy->get_type());
        for (int i = 0; i < copy->get_history_count(); ++i)
            m_filing->append(new CForm(static_cast<const CFormBase*>(copy->get_history_at(i))));
    } catch (...) {
        m_filing->~Record();
        throw;
    }
}

namespace {

// FilingName comes only from files of older writers; it is never written back.
enum ReadAttribute { EFILED_SUCCESSFUL, PRINTED_SUCCESSFUL, RECORDS_SUCCESSFUL, EMPLOYEE_COUNT, CORRECTED_COUNT,
                     DATE, FILING_NAME, READ_ATTRIBUTES };
const char* const kReadNames[] = {"EfiledSuccessful", "PrintedSuccessful", "RecordsSuccessful", "EmployeeCount",
                                  "CorrectedCount",   "Date",              "FilingName"};
static_assert(std::size(kReadNames) == READ_ATTRIBUTES, "a name for each attribute read");

} // namespace

CFiling::CFiling(COXMLNode* node)
    : CFilingBase(node, Extra{sizeof(Record)}), m_filing(new (derived_record()) Record)
{
    if (node == nullptr)
        return;
    try {
        const char* read[READ_ATTRIBUTES];
        oxml::get_attributes(node, oxml::attribute_names(kReadNames), read);
        m_filing->efiled_successful = AuditUtil::to_bool(read[EFILED_SUCCESSFUL]);
        m_filing->printed_successful = AuditUtil::to_bool(read[PRINTED_SUCCESSFUL]);
        m_filing->records_successful = AuditUtil::to_bool(read[RECORDS_SUCCESSFUL]);
        m_filing->employee_count = AuditUtil::to_int(read[EMPLOYEE_COUNT]);
        m_filing->corrected_employee_count = AuditUtil::to_int(read[CORRECTED_COUNT]);
        read_date(read[DATE]);
        m_filing->filing_name = read[FILING_NAME];
        // Every Form below the filing, at any depth, in document order.
        std::shared_ptr<COXMLNodeList> forms = node->getElementsByTagName("Form");
        if (forms) {
            const int count = forms->length();
            m_filing->forms.reserve(static_cast<size_t>(count));
            for (int i = 0; i < count; ++i) {
                COXMLNode* form = forms->item(i);
                if (form != nullptr)
                    m_filing->append(new CForm(form));
            }
        }
    } catch (...) {
        m_filing->~Record();
        throw;
    }
}

CFiling::~CFiling()
{
    delete_all_forms();
    m_filing->~Record();
}

COXMLNode* CFiling::create_xml_node(COXMLDocument* document) const
{
    COXMLNode* element = CFilingBase::create_xml_node(document, "Filing");
    if (element == nullptr)
        return nullptr;
    oxml::ElementWriter own(document, element);
    write_attributes(own);
    for (const CForm* form : m_filing->forms) {
        COXMLNode* child = form->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    return element;
}

template <class Writer>
void CFiling::write_attributes(Writer& own) const
{
    own.flag("EfiledSuccessful", m_filing->efiled_successful);
    own.flag("PrintedSuccessful", m_filing->printed_successful);
    own.flag("RecordsSuccessful", m_filing->records_successful);
    own.number("EmployeeCount", m_filing->employee_count);
    own.number("CorrectedCount", m_filing->corrected_employee_count);
}

void CFiling::write_text(oxml::TextWriter& out) const
{
    out.open("Filing");
    CFilingBase::write_attributes(out);
    write_attributes(out);
    if (out.built_instead(*this))
        return;
    for (const CForm* form : m_filing->forms)
        out.record(*form);
    out.close();
}

const attributeDicList& AttributeLists::fill_filing(const CFiling& record)
{
    std::string values[] = {
        AuditUtil::to_string(record.get_efiled_successful_flag()),
        AuditUtil::to_string(record.get_printed_successful_flag()),
        AuditUtil::to_string(record.get_records_successful_flag()),
        AuditUtil::to_string(record.get_employee_count()),
        AuditUtil::to_string(record.get_corrected_employee_count()),
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::FILING);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = std::move(values[i]);
    return table;
}

attributeDicList CFiling::getAndFillMap() const
{
    return AttributeLists::fill_filing(*this);
}

int CFiling::get_form_count() const
{
    return static_cast<int>(m_filing->forms.size());
}

CForm* CFiling::get_form_at(int index) const
{
    check_index(index, m_filing->forms.size());
    return m_filing->forms[static_cast<size_t>(index)];
}

void CFiling::add_form(CForm* form) const
{
    if (form != nullptr)
        m_filing->append(form);
}

void CFiling::delete_form_at(int index) const
{
    check_index(index, m_filing->forms.size());
    CForm* form = m_filing->forms[static_cast<size_t>(index)];
    m_filing->forms.erase(m_filing->forms.begin() + index);
    delete form;
}

void CFiling::remove_form_at(int index) const
{
    check_index(index, m_filing->forms.size());
    m_filing->forms.erase(m_filing->forms.begin() + index);
}

void CFiling::delete_all_forms() const
{
    InlineList<CForm*, 4> forms(std::move(m_filing->forms));
    for (CForm* form : forms)
        delete form;
}

void CFiling::increment_print_success_count() const
{
    // Wraps rather than overflowing.
    m_filing->print_success_count =
        static_cast<int>(static_cast<unsigned>(m_filing->print_success_count) + 1u);
}

std::string CFiling::get_filing_name() const { return m_filing->filing_name; }
void CFiling::set_filing_name(const char* name) const { m_filing->filing_name = name != nullptr ? name : ""; }

bool CFiling::get_records_flag() const { return m_filing->records_flag; }
void CFiling::set_records_flag(bool flag) const { m_filing->records_flag = flag; }
bool CFiling::get_efiled_successful_flag() const { return m_filing->efiled_successful; }
void CFiling::set_efiled_successful_flag(bool flag) const { m_filing->efiled_successful = flag; }
bool CFiling::get_printed_successful_flag() const { return m_filing->printed_successful; }
void CFiling::set_printed_successful_flag(bool flag) const { m_filing->printed_successful = flag; }
bool CFiling::get_records_successful_flag() const { return m_filing->records_successful; }
void CFiling::set_records_successful_flag(bool flag) const { m_filing->records_successful = flag; }

bool CFiling::get_regenerate_state_w2() const { return m_filing->regenerate_state_w2; }
void CFiling::set_regenerate_state_w2(bool flag) const { m_filing->regenerate_state_w2 = flag; }
bool CFiling::get_reprint_state_w2() const { return m_filing->reprint_state_w2; }
void CFiling::set_reprint_state_w2(bool flag) const { m_filing->reprint_state_w2 = flag; }
bool CFiling::get_reprint_local_w2() const { return m_filing->reprint_local_w2; }
void CFiling::set_reprint_local_w2(bool flag) const { m_filing->reprint_local_w2 = flag; }
bool CFiling::get_regenerate_employee_w2() const { return m_filing->regenerate_employee_w2; }
void CFiling::set_regenerate_employee_w2(bool flag) const { m_filing->regenerate_employee_w2 = flag; }
bool CFiling::get_reprint_select_employees() const { return m_filing->reprint_select_employees; }
void CFiling::set_reprint_select_employees(bool flag) const { m_filing->reprint_select_employees = flag; }
bool CFiling::get_reprint_employer_w2() const { return m_filing->reprint_employer_w2; }
void CFiling::set_reprint_employer_w2(bool flag) const { m_filing->reprint_employer_w2 = flag; }
bool CFiling::get_reprint_payer_1099() const { return m_filing->reprint_payer_1099; }
void CFiling::set_reprint_payer_1099(bool flag) const { m_filing->reprint_payer_1099 = flag; }
bool CFiling::get_regenerate_recipient_1099() const { return m_filing->regenerate_recipient_1099; }
void CFiling::set_regenerate_recipient_1099(bool flag) const { m_filing->regenerate_recipient_1099 = flag; }
bool CFiling::get_reprint_select_recipients() const { return m_filing->reprint_select_recipients; }
void CFiling::set_reprint_select_recipients(bool flag) const { m_filing->reprint_select_recipients = flag; }
bool CFiling::get_force_print_flag() const { return m_filing->force_print; }
void CFiling::set_force_print_flag(bool flag) const { m_filing->force_print = flag; }

int CFiling::get_employee_count() const { return m_filing->employee_count; }
void CFiling::set_employee_count(int count) const { m_filing->employee_count = count; }
int CFiling::get_recipient_count() const { return m_filing->employee_count; }
void CFiling::set_recipient_count(int count) const { m_filing->employee_count = count; }

int CFiling::get_ew2_employee_count() const { return m_filing->ew2_employee_count; }
void CFiling::set_ew2_employee_count(int count) const { m_filing->ew2_employee_count = count; }

int CFiling::get_state_employee_count() const { return m_filing->state_employee_count; }
void CFiling::set_state_employee_count(int count) const { m_filing->state_employee_count = count; }
int CFiling::get_state_recipient_count() const { return m_filing->state_employee_count; }
void CFiling::set_state_recipient_count(int count) const { m_filing->state_employee_count = count; }

int CFiling::get_local_employee_count() const { return m_filing->local_employee_count; }
void CFiling::set_local_employee_count(int count) const { m_filing->local_employee_count = count; }

int CFiling::get_corrected_employee_count() const { return m_filing->corrected_employee_count; }
void CFiling::set_corrected_employee_count(int count) const { m_filing->corrected_employee_count = count; }
int CFiling::get_corrected_recipient_count() const { return m_filing->corrected_employee_count; }
void CFiling::set_corrected_recipient_count(int count) const { m_filing->corrected_employee_count = count; }

int CFiling::get_deleted_employee_count() const { return m_filing->deleted_employee_count; }
void CFiling::set_deleted_employee_count(int count) const { m_filing->deleted_employee_count = count; }
int CFiling::get_deleted_recipient_count() const { return m_filing->deleted_employee_count; }
void CFiling::set_deleted_recipient_count(int count) const { m_filing->deleted_employee_count = count; }

int CFiling::get_added_employee_count() const { return m_filing->added_employee_count; }
void CFiling::set_added_employee_count(int count) const { m_filing->added_employee_count = count; }
int CFiling::get_added_recipient_count() const { return m_filing->added_employee_count; }
void CFiling::set_added_recipient_count(int count) const { m_filing->added_employee_count = count; }

int CFiling::get_print_success_count() const { return m_filing->print_success_count; }
void CFiling::set_print_success_count(int count) const { m_filing->print_success_count = count; }
