#include <vellument/CVellument.h>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Format.h>

#include "Vellument/Vellument_impl.h"
#include "records/AttributeLists.h"

using Ostrel::Format::TextOf;

// The private record reads the local code list and makes the database mapper.
CVellument::CVellument() : m_impl(std::make_shared<vellument_impl>()) {}

CVellument::~CVellument() = default;

std::string CVellument::build_file_name(Vellument::FORM_TYPES form_category, Vellument::EXTENSION_TYPES extension,
                                        const char* filing_year, const char* qualifier)
{
    const std::string qualifier_text = TextOf(qualifier);
    std::string name = "Vellument_" + get_vellument_name_middle(form_category) + qualifier_text;
    if (!qualifier_text.empty())
        name += "_";
    name += TextOf(filing_year);
    if (extension == Vellument::EXTENSION_VLM)
        name += ".VLM";
    else if (extension == Vellument::EXTENSION_TLM)
        name += ".TLM";
    return name;
}

void CVellument::open(const char* vellument_name, const char* filing_ein, const char* filing_year,
                      const char* vendor_code, bool is_test, bool read_only) const
{
    m_impl->open(vellument_name, filing_ein, filing_year, vendor_code, is_test, read_only);
}

int CVellument::save(const char* file_name) const
{
    return m_impl->save(file_name);
}

std::string CVellument::get_document_type() const { return m_impl->form_type_string; }
std::string CVellument::get_form_type_string() const { return m_impl->form_type_string; }
void CVellument::set_form_type_string(const char* text) const { m_impl->form_type_string = TextOf(text); }
std::string CVellument::get_filing_period_start() const { return m_impl->filing_period_start; }
void CVellument::set_filing_period_start(const char* text) const { m_impl->filing_period_start = TextOf(text); }
std::string CVellument::get_filing_period_end() const { return m_impl->filing_period_end; }
void CVellument::set_filing_period_end(const char* text) const { m_impl->filing_period_end = TextOf(text); }
std::string CVellument::get_filing_year() const { return m_impl->filing_year; }
std::string CVellument::get_registration_mode() const { return m_impl->registration_mode; }
void CVellument::set_registration_mode(const char* text) const { m_impl->registration_mode = TextOf(text); }
std::string CVellument::get_vendor_code() const { return m_impl->vendor_code; }
std::string CVellument::get_filing_ein() const { return m_impl->filing_ein; }
std::string CVellument::get_vellument_name() const { return m_impl->vellument_name; }
void CVellument::set_vellument_name(const char* text) const { m_impl->vellument_name = TextOf(text); }
CDateTime CVellument::get_modified_date() const { return m_impl->modified_date; }

Vellument::FORM_TYPES CVellument::get_form_category() const
{
    return get_form_type_from_string(m_impl->form_type_string.c_str());
}

CDictionary* CVellument::get_dictionary() const { return m_impl->dictionary; }
bool CVellument::is_work_in_progress() const { return m_impl->work_in_progress; }
bool CVellument::is_web_service_error() const { return m_impl->web_service_error; }

int CVellument::get_transaction_count() const
{
    return static_cast<int>(m_impl->transactions.size());
}

CTransaction* CVellument::get_transaction(int index) const
{
    if (index < 0 || index >= get_transaction_count())
        return nullptr;
    return m_impl->transactions[static_cast<std::size_t>(index)];
}

attributeDicList CVellument::getAndFillMap() const
{
    return m_impl->get_and_fill_map();
}

attributeDicList vellument_impl::get_and_fill_map() const
{
    attributeDicList& table = AttributeLists::table(AttributeLists::VELLUMENT);
    table.at(0).attributeValue = "200";
    table.at(1).attributeValue = filing_period_start;
    table.at(2).attributeValue = filing_period_end;
    table.at(3).attributeValue = registration_mode;
    table.at(4).attributeValue = form_type_string;
    table.at(5).attributeValue = vendor_code;
    table.at(6).attributeValue = filing_year;
    table.at(7).attributeValue = modified_date.format("%m/%d/%Y %H:%M:%S");
    table.at(8).attributeValue = filing_ein;
    return table;
}

CTransaction* CVellument::get_current_transaction() const
{
    return m_impl->current_transaction();
}

CPackage* CVellument::get_current_package() const
{
    CTransaction* current = m_impl->current_transaction();
    return current != nullptr ? current->get_package() : nullptr;
}

CStatus* CVellument::get_current_status() const
{
    CTransaction* current = m_impl->current_transaction();
    return current != nullptr ? current->get_status() : nullptr;
}

CDictionary* CVellument::get_current_dictionary() const
{
    CTransaction* current = m_impl->current_transaction();
    return current != nullptr ? current->get_dictionary() : nullptr;
}

void CVellument::clear_current_status() const { m_impl->clear_current_status(); }
void CVellument::clear_current_package() const { m_impl->clear_current_package(); }
void CVellument::complete_current_transaction() const { m_impl->complete_current_transaction(); }

std::string CVellument::get_latest_action(Vellument::FILING_TYPE type, const char* identifier) const
{
    const CCopy* copy = m_impl->find_latest_copy(type, identifier);
    if (copy == nullptr)
        return std::string();
    if (copy->get_efiled_flag())
        return "eFiled";
    if (copy->get_printed_flag())
        return copy->get_mailed_flag() ? "Mailed" : "Printed";
    return std::string();
}

std::string CVellument::get_latest_date(Vellument::FILING_TYPE type, const char* identifier) const
{
    const CCopy* copy = m_impl->find_latest_copy(type, identifier);
    if (copy == nullptr)
        return std::string();
    const CDateTime date = copy->get_date();
    if (date.get_days() == 0.0)
        return std::string();
    return date.format("%m/%d/%Y");
}

bool CVellument::is_package_ready_to_efile() const { return m_impl->is_package_ready_to_efile(); }
std::string CVellument::get_history_file_location() const { return m_impl->get_history_file_location(); }
