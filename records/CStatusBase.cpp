#include <vellument/CStatusBase.h>

#include <vellument/AuditUtil.h>
#include <vellument/CPathHandling.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"
#include "records/EnumText.h"

struct CStatusBase::Record {
    int employee_count = 0;
    int state_employee_count = 0;
    int local_employee_count = 0;
    int corrected_employee_count = 0;
    int ew2_employee_count = 0;
    int filing_options = 0;
    std::string kxn_path;
};

CStatusBase::CStatusBase()
    : m_base(new Record)
{
}

CStatusBase::CStatusBase(const CStatusBase* source)
    : m_base(new Record)
{
    if (source == nullptr)
        return;
    const Record& from = *source->m_base;
    m_base->employee_count = from.employee_count;
    m_base->state_employee_count = from.state_employee_count;
    m_base->local_employee_count = from.local_employee_count;
    m_base->corrected_employee_count = from.corrected_employee_count;
    m_base->ew2_employee_count = from.ew2_employee_count;
    m_base->filing_options = from.filing_options;
    // Kept absolute on purpose: every reader of the path makes it absolute anyway, and that
    // leaves a path without ".\" alone.
    m_base->kxn_path = CPathHandling::convert_path_to_absolute(from.kxn_path.c_str());
}

CStatusBase::CStatusBase(COXMLNode* node)
    : m_base(new Record)
{
    if (node == nullptr)
        return;
    m_base->kxn_path = CPathHandling::convert_path_to_relative(node->getAttribute("KXNPath"));
    m_base->filing_options = Vellument::Text::string_to_package_choice(node->getAttribute("FilingChoice"));
    m_base->employee_count = AuditUtil::to_int(node->getAttribute("EmployeeCount"));
    m_base->state_employee_count = AuditUtil::to_int(node->getAttribute("StateEmployeeCount"));
    m_base->local_employee_count = AuditUtil::to_int(node->getAttribute("LocalEmployeeCount"));
    m_base->corrected_employee_count = AuditUtil::to_int(node->getAttribute("CorrectedCount"));
    // Older writers stored it; it is no longer written.
    m_base->ew2_employee_count = AuditUtil::to_int(node->getAttribute("EW2EmployeeCount"));
}

CStatusBase::~CStatusBase()
{
    delete m_base;
}

std::string CStatusBase::to_package_choice_string(int value)
{
    return Vellument::Text::package_choice_to_string(value);
}

COXMLNode* CStatusBase::create_xml_node(COXMLDocument* document, const char* name, int /*filing_count*/) const
{
    if (document == nullptr || name == nullptr)
        return nullptr;
    oxml::ElementWriter element(document, name);
    if (element.element() == nullptr)
        return nullptr;
    write_attributes(element);
    return element.element();
}

template <class Writer>
void CStatusBase::write_attributes(Writer& element) const
{
    element.text("KXNPath", get_kxn_path());
    element.text("FilingChoice", to_package_choice_string(m_base->filing_options));
    element.number("EmployeeCount", m_base->employee_count);
    element.number("StateEmployeeCount", m_base->state_employee_count);
    element.number("LocalEmployeeCount", m_base->local_employee_count);
    element.number("CorrectedCount", m_base->corrected_employee_count);
}

template void CStatusBase::write_attributes(oxml::TextWriter&) const;

const attributeDicList& AttributeLists::fill_status_base(const CStatusBase& record)
{
    attributeDicList& table = AttributeLists::table(AttributeLists::STATUS_BASE);
    table.at(0).attributeValue = record.get_kxn_path();
    table.at(1).attributeValue = CStatusBase::to_package_choice_string(record.get_filing_options());
    table.at(2).attributeValue = AuditUtil::to_string(record.get_employee_count());
    table.at(3).attributeValue = AuditUtil::to_string(record.get_state_employee_count());
    table.at(4).attributeValue = AuditUtil::to_string(record.get_local_employee_count());
    table.at(5).attributeValue = AuditUtil::to_string(record.get_corrected_employee_count());
    return table;
}

attributeDicList CStatusBase::getAndFillMapBase() const
{
    return AttributeLists::fill_status_base(*this);
}

int CStatusBase::get_employee_count() const { return m_base->employee_count; }
void CStatusBase::set_employee_count(int count) const { m_base->employee_count = count; }
int CStatusBase::get_recipient_count() const { return m_base->employee_count; }
void CStatusBase::set_recipient_count(int count) const { m_base->employee_count = count; }

int CStatusBase::get_state_employee_count() const { return m_base->state_employee_count; }
void CStatusBase::set_state_employee_count(int count) const { m_base->state_employee_count = count; }
int CStatusBase::get_state_recipient_count() const { return m_base->state_employee_count; }
void CStatusBase::set_state_recipient_count(int count) const { m_base->state_employee_count = count; }

int CStatusBase::get_local_employee_count() const { return m_base->local_employee_count; }
void CStatusBase::set_local_employee_count(int count) const { m_base->local_employee_count = count; }
int CStatusBase::get_local_recipient_count() const { return m_base->local_employee_count; }
void CStatusBase::set_local_recipient_count(int count) const { m_base->local_employee_count = count; }

int CStatusBase::get_corrected_employee_count() const { return m_base->corrected_employee_count; }
void CStatusBase::set_corrected_employee_count(int count) const { m_base->corrected_employee_count = count; }
int CStatusBase::get_corrected_recipient_count() const { return m_base->corrected_employee_count; }
void CStatusBase::set_corrected_recipient_count(int count) const { m_base->corrected_employee_count = count; }

int CStatusBase::get_ew2_employee_count() const { return m_base->ew2_employee_count; }
void CStatusBase::set_ew2_employee_count(int count) const { m_base->ew2_employee_count = count; }

int CStatusBase::get_filing_options() const { return m_base->filing_options; }
void CStatusBase::set_filing_options(int options) const { m_base->filing_options = options; }

std::string CStatusBase::get_kxn_path() const
{
    return CPathHandling::convert_path_to_absolute(m_base->kxn_path.c_str());
}

void CStatusBase::set_kxn_path(const char* path) const
{
    m_base->kxn_path = CPathHandling::convert_path_to_relative(path != nullptr ? path : "");
}
