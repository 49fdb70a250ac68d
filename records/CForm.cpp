#include <vellument/CForm.h>

#include <string>
#include <utility>

#include <vellument/AuditUtil.h>
#include <vellument/CPathHandling.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"
#include "records/PackedText.h"
#include "records/SharedBlock.h"

// The fields of one run through the viewer; only the result code and the printed result are
// kept in the document.
struct CForm::Record {
    // The prior EXML location in relative form.
    enum Text { PRIOR_EXML_LOCATION, PAYER_KIND, FORM_DIR, FORM_SET, VIEWER_RESULT_CODE, PAPER_WARNING, TEXTS };
    PackedText<TEXTS> text;
    int task_number = 0;
    int employee_count = 0;
    bool result_printed = false;
    bool efiled_successful = false;
    bool printed_successful = false;
    bool records_successful = false;
    bool force_print = false;
    bool special_paper = false;
};

// The form's own record lives in the room behind the base's record. A form made in memory
// replaces the earlier forms of its type when it completes.
CForm::CForm() : CFormBase(Extra{sizeof(Record)}), m_form(new (derived_record()) Record)
{
    set_completion(Vellument::FORM_COMPLETION_REPLACE);
}

CForm::CForm(const CFormBase* source) : CFormBase(source, Extra{sizeof(Record)}), m_form(new (derived_record()) Record)
{
    set_completion(Vellument::FORM_COMPLETION_REPLACE);
}

namespace {

const char* const kReadNames[] = {"ViewerResultCode", "ResultPrinted"};

} // namespace

CForm::CForm(COXMLNode* node) : CFormBase(node, Extra{sizeof(Record)}), m_form(new (derived_record()) Record)
{
    if (node == nullptr)
        return;
    const char* read[2];
    oxml::get_attributes(node, oxml::attribute_names(kReadNames), read);
    m_form->text.set(Record::VIEWER_RESULT_CODE, read[0]);
    m_form->result_printed = AuditUtil::to_bool(read[1]);
}

CForm::~CForm()
{
    m_form->~Record();
}

COXMLNode* CForm::create_xml_node(COXMLDocument* document) const
{
    COXMLNode* element = CFormBase::create_xml_node(document, "Form");
    if (element == nullptr)
        return nullptr;
    oxml::ElementWriter own(document, element);
    write_attributes(own);
    return element;
}

template <class Writer>
void CForm::write_attributes(Writer& own) const
{
    own.text("ViewerResultCode", m_form->text.c_str(Record::VIEWER_RESULT_CODE));
    own.flag("ResultPrinted", m_form->result_printed);
}

void CForm::write_text(oxml::TextWriter& out) const
{
    out.open("Form");
    CFormBase::write_attributes(out);
    write_attributes(out);
    if (!out.built_instead(*this))
        out.close();
}

const attributeDicList& AttributeLists::fill_form(const CForm& record)
{
    std::string values[] = {
        record.get_viewer_result_code(),
        AuditUtil::to_string(record.get_result_printed()),
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::FORM);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = std::move(values[i]);
    return table;
}

attributeDicList CForm::getAndFillMap() const
{
    return AttributeLists::fill_form(*this);
}

std::string CForm::get_prior_exml_location() const
{
    return CPathHandling::convert_path_to_absolute(m_form->text.c_str(Record::PRIOR_EXML_LOCATION));
}
void CForm::set_prior_exml_location(const std::string& path) const
{
    m_form->text.set(Record::PRIOR_EXML_LOCATION, CPathHandling::convert_path_to_relative(path.c_str()));
}

std::string CForm::get_payer_kind_string() const { return m_form->text.get(Record::PAYER_KIND); }
void CForm::set_payer_kind_string(const std::string& kind) const { m_form->text.set(Record::PAYER_KIND, kind); }

std::string CForm::get_form_dir() const { return m_form->text.get(Record::FORM_DIR); }
void CForm::set_form_dir(const std::string& dir) const
{
    if (!dir.empty())
        m_form->text.set(Record::FORM_DIR, dir);
}

std::string CForm::get_form_set() const { return m_form->text.get(Record::FORM_SET); }
void CForm::set_form_set(const std::string& set) const { m_form->text.set(Record::FORM_SET, set); }

std::string CForm::get_viewer_result_code() const { return m_form->text.get(Record::VIEWER_RESULT_CODE); }
void CForm::set_viewer_result_code(const std::string& code) const { m_form->text.set(Record::VIEWER_RESULT_CODE, code); }

std::string CForm::get_paper_warning() const { return m_form->text.get(Record::PAPER_WARNING); }
void CForm::set_paper_warning(const std::string& warning) const { m_form->text.set(Record::PAPER_WARNING, warning); }

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
