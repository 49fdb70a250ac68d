#include <vellument/CFormBase.h>

#include <string>

#include <vellument/AuditUtil.h>
#include <vellument/CPathHandling.h>
#include <vellument/Ostrel_XML.h>

#include "records/AttributeLists.h"
#include "records/EnumText.h"

struct CFormBase::Record {
    Vellument::FORM_TYPE type = Vellument::FORM_TYPE_UNKNOWN;
    Vellument::FORM_FLAGS flags = Vellument::FORM_FLAGS_NONE;
    Vellument::FORM_COMPLETION completion = Vellument::FORM_COMPLETION_APPEND;
    int krf_filter_number = 0;
    int krf_filter_number_2 = 0;
    std::string form_name;
    std::string description;
    std::string location;       // relative form
    std::string exml_location;  // relative form
    std::string krf_db_path;
    std::string krf_version;
    std::string divider_form;
};

namespace {

std::string to_relative(const std::string& path)
{
    return CPathHandling::convert_path_to_relative(path.c_str());
}

std::string to_absolute(const std::string& path)
{
    return CPathHandling::convert_path_to_absolute(path.c_str());
}

} // namespace

CFormBase::CFormBase() : m_base(new Record) {}

CFormBase::CFormBase(const CFormBase* source) : m_base(new Record)
{
    if (source == nullptr)
        return;
    *m_base = *source->m_base;
    // Through the absolute form, so a path is stored relative even if the source held it otherwise.
    set_location(source->get_location());
    set_exml_location(source->get_exml_location());
}

CFormBase::CFormBase(COXMLNode* node) : m_base(new Record)
{
    if (node == nullptr)
        return;
    // Completion is deliberately not read: a form that comes from a document counts as Append.
    // Read in the order written: the attribute search resumes after the last one found.
    m_base->type = Vellument::Text::string_to_form_type(node->getAttribute("Type"));
    m_base->flags = Vellument::Text::string_to_form_flags(node->getAttribute("Flags"));
    m_base->description = node->getAttribute("Description");
    // One conversion suffices: a relative path converts to itself.
    m_base->location = CPathHandling::convert_path_to_relative(node->getAttribute("Location"));
    m_base->exml_location = CPathHandling::convert_path_to_relative(node->getAttribute("EXMLLocation"));
    m_base->form_name = node->getAttribute("Form_Name");
    m_base->krf_db_path = node->getAttribute("KRF_DB_Path");
    m_base->krf_version = node->getAttribute("KRFVersion");
    m_base->krf_filter_number = AuditUtil::to_int(node->getAttribute("KRFFilter_Number"));
    m_base->krf_filter_number_2 = AuditUtil::to_int(node->getAttribute("KRFFilter_Number2"));
    m_base->divider_form = node->getAttribute("Divider_Form");
}

CFormBase::~CFormBase()
{
    delete m_base;
}

COXMLNode* CFormBase::create_xml_node(COXMLDocument* document, const char* name) const
{
    if (document == nullptr || name == nullptr)
        return nullptr;
    COXMLNode* element = document->createElement(name);
    if (element == nullptr)
        return nullptr;
    element->setAttribute("Type", get_type_string().c_str());
    element->setAttribute("Flags", get_flags_string().c_str());
    element->setAttribute("Completion", get_completion_string().c_str());
    element->setAttribute("Description", m_base->description.c_str());
    element->setAttribute("Location", get_location().c_str());
    element->setAttribute("EXMLLocation", get_exml_location().c_str());
    element->setAttribute("Form_Name", m_base->form_name.c_str());
    element->setAttribute("KRF_DB_Path", m_base->krf_db_path.c_str());
    element->setAttribute("KRFVersion", m_base->krf_version.c_str());
    element->setAttribute("KRFFilter_Number", AuditUtil::to_string(m_base->krf_filter_number).c_str());
    element->setAttribute("KRFFilter_Number2", AuditUtil::to_string(m_base->krf_filter_number_2).c_str());
    element->setAttribute("Divider_Form", m_base->divider_form.c_str());
    return element;
}

attributeDicList CFormBase::getAndFillMapBase() const
{
    const std::string values[] = {
        get_type_string(),
        get_flags_string(),
        get_completion_string(),
        m_base->description,
        get_location(),
        get_exml_location(),
        m_base->form_name,
        m_base->krf_db_path,
        m_base->krf_version,
        AuditUtil::to_string(m_base->krf_filter_number),
        AuditUtil::to_string(m_base->krf_filter_number_2),
        m_base->divider_form,
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::FORM_BASE);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = values[i];
    return table;
}

Vellument::FORM_TYPE CFormBase::get_type() const { return m_base->type; }
void CFormBase::set_type(Vellument::FORM_TYPE type) const { m_base->type = type; }
std::string CFormBase::get_type_string() const { return Vellument::Text::form_type_to_string(m_base->type); }

Vellument::FORM_FLAGS CFormBase::get_flags() const { return m_base->flags; }
void CFormBase::set_flags(Vellument::FORM_FLAGS flags) const { m_base->flags = flags; }
std::string CFormBase::get_flags_string() const { return Vellument::Text::form_flags_to_string(m_base->flags); }

Vellument::FORM_COMPLETION CFormBase::get_completion() const { return m_base->completion; }
void CFormBase::set_completion(Vellument::FORM_COMPLETION completion) const { m_base->completion = completion; }
std::string CFormBase::get_completion_string() const
{
    return Vellument::Text::completion_to_string(m_base->completion);
}

std::string CFormBase::get_form_name() const { return m_base->form_name; }
void CFormBase::set_form_name(const std::string& name) const { m_base->form_name = name; }

std::string CFormBase::get_description() const { return m_base->description; }
void CFormBase::set_description(const std::string& description) const { m_base->description = description; }

std::string CFormBase::get_location() const { return to_absolute(m_base->location); }
void CFormBase::set_location(const std::string& path) const { m_base->location = to_relative(path); }

std::string CFormBase::get_exml_location() const { return to_absolute(m_base->exml_location); }
void CFormBase::set_exml_location(const std::string& path) const { m_base->exml_location = to_relative(path); }

std::string CFormBase::get_krf_db_path() const { return m_base->krf_db_path; }
void CFormBase::set_krf_db_path(const std::string& path) const { m_base->krf_db_path = path; }

std::string CFormBase::get_krf_version() const { return m_base->krf_version; }
void CFormBase::set_krf_version(const std::string& version) const { m_base->krf_version = version; }

int CFormBase::get_krf_filter_number() const { return m_base->krf_filter_number; }
void CFormBase::set_krf_filter_number(int number) const { m_base->krf_filter_number = number; }

int CFormBase::get_krf_filter_number_2() const { return m_base->krf_filter_number_2; }
void CFormBase::set_krf_filter_number_2(int number) const { m_base->krf_filter_number_2 = number; }

std::string CFormBase::get_divider_form() const { return m_base->divider_form; }
void CFormBase::set_divider_form(const std::string& divider) const { m_base->divider_form = divider; }
