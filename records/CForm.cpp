#include <vellument/CForm.h>

#include <string>

#include <vellument/AuditUtil.h>
#include <vellument/CPathHandling.h>
#include <vellument/Ostrel_XML.h>

#include "records/AttributeLists.h"

// The fields of one run through the viewer; only the result code and the printed result are
// kept in the document.
struct CForm::Record {
    std::string prior_exml_location;  // relative form
    std::string payer_kind_string;
    std::string form_dir;
    std::string form_set;
    std::string viewer_result_code;
    std::string paper_warning;
    int task_number = 0;
    int employee_count = 0;
    bool result_printed = false;
    bool efiled_successful = false;
    bool printed_successful = false;
    bool records_successful = false;
    bool force_print = false;
    bool special_paper = false;
};

// A form made in memory replaces the earlier forms of its type when it completes.
CForm::CForm() : CFormBase(), m_form(new Record)
{
    set_completion(Vellument::FORM_COMPLETION_REPLACE);
}

CForm::CForm(const CFormBase* source) : CFormBase(source), m_form(new Record)
{
    set_completion(Vellument::FORM_COMPLETION_REPLACE);
}

CForm::CForm(COXMLNode* node) : CFormBase(node), m_form(new Record)
{
    if (node == nullptr)
        return;
    m_form->viewer_result_code = node->getAttribute("ViewerResultCode");
    m_form->result_printed = AuditUtil::to_bool(node->getAttribute("ResultPrinted"));
}

CForm::~CForm()
{
    delete m_form;
}

COXMLNode* CForm::create_xml_node(COXMLDocument* document) const
{
    COXMLNode* element = CFormBase::create_xml_node(document, "Form");
    if (element == nullptr)
        return nullptr;
    element->setAttribute("ViewerResultCode", m_form->viewer_result_code.c_str());
    element->setAttribute("ResultPrinted", AuditUtil::to_string(m_form->result_printed).c_str());
    return element;
}

attributeDicList CForm::getAndFillMap() const
{
    const std::string values[] = {
        m_form->viewer_result_code,
        AuditUtil::to_string(m_form->result_printed),
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::FORM);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = values[i];
    return table;
}

std::string CForm::get_prior_exml_location() const
{
    return CPathHandling::convert_path_to_absolute(m_form->prior_exml_location.c_str());
}
void CForm::set_prior_exml_location(const std::string& path) const
{
    m_form->prior_exml_location = CPathHandling::convert_path_to_relative(path.c_str());
}

std::string CForm::get_payer_kind_string() const { return m_form->payer_kind_string; }
void CForm::set_payer_kind_string(const std::string& kind) const { m_form->payer_kind_string = kind; }

std::string CForm::get_form_dir() const { return m_form->form_dir; }
void CForm::set_form_dir(const std::string& dir) const
{
    if (!dir.empty())
        m_form->form_dir = dir;
}

std::string CForm::get_form_set() const { return m_form->form_set; }
void CForm::set_form_set(const std::string& set) const { m_form->form_set = set; }

std::string CForm::get_viewer_result_code() const { return m_form->viewer_result_code; }
void CForm::set_viewer_result_code(const std::string& code) const { m_form->viewer_result_code = code; }

std::string CForm::get_paper_warning() const { return m_form->paper_warning; }
void CForm::set_paper_warning(const std::string& warning) const { m_form->paper_warning = warning; }

int CForm::get_task_number() const { return m_form->task_number; }
void CForm::set_task_number(int number) const { m_form->task_number = number; }

int CForm::get_employee_count() const { return m_form->employee_count; }
void CForm::set_employee_count(int count) const { m_form->employee_count = count; }

bool CForm::get_result_printed() const { return m_form->result_printed; }
void CForm::set_result_printed(bool printed) const { m_form->result_printed = printed; }

bool CForm::get_efiled_successful_flag() const { return m_form->efiled_successful; }
void CForm::set_efiled_successful_flag(bool flag) const { m_form->efiled_successful = flag; }

bool CForm::get_printed_successful_flag() const { return m_form->printed_successful; }
void CForm::set_printed_successful_flag(bool flag) const { m_form->printed_successful = flag; }

bool CForm::get_records_successful_flag() const { return m_form->records_successful; }
void CForm::set_records_successful_flag(bool flag) const { m_form->records_successful = flag; }

bool CForm::get_force_print() const { return m_form->force_print; }
void CForm::set_force_print(bool flag) const { m_form->force_print = flag; }

bool CForm::get_special_paper() const { return m_form->special_paper; }
void CForm::set_special_paper(bool flag) const { m_form->special_paper = flag; }
