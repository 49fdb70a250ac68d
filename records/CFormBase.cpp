#include <vellument/CFormBase.h>

#include <iterator>
#include <string>
#include <utility>

#include <vellument/AuditUtil.h>
#include <vellument/CPathHandling.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"
#include "records/EnumText.h"
#include "records/PackedText.h"
#include "records/RelativePath.h"
#include "records/SharedBlock.h"

struct CFormBase::Record {
    Vellument::FORM_TYPE type = Vellument::FORM_TYPE_UNKNOWN;
    Vellument::FORM_FLAGS flags = Vellument::FORM_FLAGS_NONE;
    Vellument::FORM_COMPLETION completion = Vellument::FORM_COMPLETION_APPEND;
    int krf_filter_number = 0;
    int krf_filter_number_2 = 0;
    // Paths of the output in relative form.
    enum Text { DESCRIPTION, LOCATION, EXML_LOCATION, FORM_NAME, KRF_DB_PATH, KRF_VERSION, DIVIDER_FORM, TEXTS };
    // A form's texts mostly take about a hundred bytes: they live inside the record.
    PackedText<TEXTS, 120> text;
};

namespace {

std::string to_relative(const std::string& path)
{
    return CPathHandling::convert_path_to_relative(path.c_str());
}

std::string to_absolute(const char* path)
{
    return CPathHandling::convert_path_to_absolute(path);
}

} // namespace

CFormBase::CFormBase() : CFormBase(Extra{0}) {}

CFormBase::CFormBase(const CFormBase* source) : CFormBase(source, Extra{0}) {}

CFormBase::CFormBase(COXMLNode* node) : CFormBase(node, Extra{0}) {}

CFormBase::CFormBase(Extra extra) : m_base(shared_block::make<Record>(extra.size)) {}

CFormBase::CFormBase(const CFormBase* source, Extra extra) : m_base(shared_block::make<Record>(extra.size))
{
    if (source == nullptr)
        return;
    *m_base = *source->m_base;
    // Through the absolute form, so a path is stored relative even if the source held it otherwise.
    set_location(source->get_location());
    set_exml_location(source->get_exml_location());
}

namespace {

// Completion is deliberately not read: a form that comes from a document counts as Append.
enum ReadAttribute { TYPE, FLAGS, DESCRIPTION, LOCATION, EXML_LOCATION, FORM_NAME, KRF_DB_PATH, KRF_VERSION,
                     KRF_FILTER_NUMBER, KRF_FILTER_NUMBER_2, DIVIDER_FORM, READ_ATTRIBUTES };
const char* const kReadNames[] = {"Type",        "Flags",      "Description",      "Location",
                                  "EXMLLocation", "Form_Name", "KRF_DB_Path",      "KRFVersion",
                                  "KRFFilter_Number", "KRFFilter_Number2", "Divider_Form"};
static_assert(std::size(kReadNames) == READ_ATTRIBUTES, "a name for each attribute read");

} // namespace

CFormBase::CFormBase(COXMLNode* node, Extra extra) : m_base(shared_block::make<Record>(extra.size))
{
    if (node == nullptr)
        return;
    const char* read[READ_ATTRIBUTES];
    oxml::get_attributes(node, oxml::attribute_names(kReadNames), read);
    m_base->type = Vellument::Text::string_to_form_type(read[TYPE]);
    m_base->flags = Vellument::Text::string_to_form_flags(read[FLAGS]);
    // The texts go straight into the record's one block, in their order. The paths in relative
    // form; one conversion suffices: a relative path converts to itself.
    decltype(m_base->text)::Builder texts;
    texts.add("", read[DESCRIPTION]);
    add_relative_path(texts, read[LOCATION]);
    add_relative_path(texts, read[EXML_LOCATION]);
    texts.add("", read[FORM_NAME]);
    texts.add("", read[KRF_DB_PATH]);
    texts.add("", read[KRF_VERSION]);
    m_base->krf_filter_number = AuditUtil::to_int(read[KRF_FILTER_NUMBER]);
    m_base->krf_filter_number_2 = AuditUtil::to_int(read[KRF_FILTER_NUMBER_2]);
    texts.add("", read[DIVIDER_FORM]);
    m_base->text.assign(std::move(texts));
}

CFormBase::~CFormBase()
{
    shared_block::destroy(m_base);
}

void* CFormBase::derived_record() const
{
    return shared_block::room_behind(m_base);
}

COXMLNode* CFormBase::create_xml_node(COXMLDocument* document, const char* name) const
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
void CFormBase::write_attributes(Writer& element) const
{
    element.text("Type", get_type_string());
    element.text("Flags", get_flags_string());
    element.text("Completion", get_completion_string());
    element.text("Description", m_base->text.c_str(Record::DESCRIPTION));
    element.text("Location", get_location());
    element.text("EXMLLocation", get_exml_location());
    element.text("Form_Name", m_base->text.c_str(Record::FORM_NAME));
    element.text("KRF_DB_Path", m_base->text.c_str(Record::KRF_DB_PATH));
    element.text("KRFVersion", m_base->text.c_str(Record::KRF_VERSION));
    element.number("KRFFilter_Number", m_base->krf_filter_number);
    element.number("KRFFilter_Number2", m_base->krf_filter_number_2);
    element.text("Divider_Form", m_base->text.c_str(Record::DIVIDER_FORM));
}

template void CFormBase::write_attributes(oxml::TextWriter&) const;

const attributeDicList& AttributeLists::fill_form_base(const CFormBase& record)
{
    std::string values[] = {
        record.get_type_string(),
        record.get_flags_string(),
        record.get_completion_string(),
        record.get_description(),
        record.get_location(),
        record.get_exml_location(),
        record.get_form_name(),
        record.get_krf_db_path(),
        record.get_krf_version(),
        AuditUtil::to_string(record.get_krf_filter_number()),
        AuditUtil::to_string(record.get_krf_filter_number_2()),
        record.get_divider_form(),
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::FORM_BASE);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = std::move(values[i]);
    return table;
}

attributeDicList CFormBase::getAndFillMapBase() const
{
    return AttributeLists::fill_form_base(*this);
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

std::string CFormBase::get_form_name() const { return m_base->text.get(Record::FORM_NAME); }
void CFormBase::set_form_name(const std::string& name) const { m_base->text.set(Record::FORM_NAME, name); }

std::string CFormBase::get_description() const { return m_base->text.get(Record::DESCRIPTION); }
void CFormBase::set_description(const std::string& description) const { m_base->text.set(Record::DESCRIPTION, description); }

std::string CFormBase::get_location() const { return to_absolute(m_base->text.c_str(Record::LOCATION)); }
void CFormBase::set_location(const std::string& path) const { m_base->text.set(Record::LOCATION, to_relative(path)); }

std::string CFormBase::get_exml_location() const { return to_absolute(m_base->text.c_str(Record::EXML_LOCATION)); }
void CFormBase::set_exml_location(const std::string& path) const { m_base->text.set(Record::EXML_LOCATION, to_relative(path)); }

std::string CFormBase::get_krf_db_path() const { return m_base->text.get(Record::KRF_DB_PATH); }
void CFormBase::set_krf_db_path(const std::string& path) const { m_base->text.set(Record::KRF_DB_PATH, path); }

std::string CFormBase::get_krf_version() const { return m_base->text.get(Record::KRF_VERSION); }
void CFormBase::set_krf_version(const std::string& version) const { m_base->text.set(Record::KRF_VERSION, version); }

int CFormBase::get_krf_filter_number() const { return m_base->krf_filter_number; }
void CFormBase::set_krf_filter_number(int number) const { m_base->krf_filter_number = number; }

int CFormBase::get_krf_filter_number_2() const { return m_base->krf_filter_number_2; }
void CFormBase::set_krf_filter_number_2(int number) const { m_base->krf_filter_number_2 = number; }

std::string CFormBase::get_divider_form() const { return m_base->text.get(Record::DIVIDER_FORM); }
void CFormBase::set_divider_form(const std::string& divider) const { m_base->text.set(Record::DIVIDER_FORM, divider); }
