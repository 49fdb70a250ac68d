#include <vellument/CFilingBase.h>

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

namespace {
const char* const kDateFormat = "%m/%d/%Y %H:%M:%S";
}

struct CFilingBase::Record {
    Vellument::FILING_TYPE type = Vellument::FILING_TYPE_UNKNOWN;
    // The path in relative form. Both texts are mostly short: they live inside the record.
    enum Text { IDENTIFIER, KRF_FILE_LOCATION, TEXTS };
    PackedText<TEXTS, 48> text;
    int vlid = 0;
    bool printed = false;
    bool mailed = false;
    bool efiled = false;
    bool corrected = false;
    bool replacement = false;
    bool replaceable = false;
    CDateTime date;
};

CFilingBase::CFilingBase() : CFilingBase(Extra{0}) {}

CFilingBase::CFilingBase(const CFilingBase* source) : CFilingBase(source, Extra{0}) {}

CFilingBase::CFilingBase(COXMLNode* node) : CFilingBase(node, Extra{0}) {}

CFilingBase::CFilingBase(Extra extra) : m_base(shared_block::make<Record>(extra.size)) {}

CFilingBase::CFilingBase(const CFilingBase* source, Extra extra) : m_base(shared_block::make<Record>(extra.size))
{
    if (source == nullptr)
        return;
    // The mailed flag stays false: a copy has not been mailed yet.
    m_base->vlid = source->m_base->vlid;
    m_base->printed = source->m_base->printed;
    m_base->efiled = source->m_base->efiled;
    m_base->corrected = source->m_base->corrected;
    m_base->replaceable = source->m_base->replaceable;
    m_base->replacement = source->m_base->replacement;
    m_base->date = source->m_base->date;
    m_base->text = source->m_base->text;
    m_base->type = source->m_base->type;
    set_krf_file_location(source->get_krf_file_location());
}

namespace {

// The date is read by the derived classes.
enum ReadAttribute { TYPE, IDENTIFIER, VLID, PRINTED, MAILED, EFILED, CORRECTED, REPLACEABLE, REPLACEMENT, KRF_PATH,
                     READ_ATTRIBUTES };
const char* const kReadNames[] = {"Type",      "Identifier",  "VLID",        "Printed", "Mailed",
                                  "Efiled",    "Corrected",   "Replaceable", "Replacement", "KRFPath"};
static_assert(std::size(kReadNames) == READ_ATTRIBUTES, "a name for each attribute read");

} // namespace

CFilingBase::CFilingBase(COXMLNode* node, Extra extra) : m_base(shared_block::make<Record>(extra.size))
{
    if (node == nullptr)
        return;
    const char* read[READ_ATTRIBUTES];
    oxml::get_attributes(node, oxml::attribute_names(kReadNames), read);
    decltype(m_base->text)::Builder texts;
    m_base->type = Vellument::Text::string_to_filing_type(read[TYPE]);
    texts.add("", read[IDENTIFIER]);
    m_base->vlid = AuditUtil::to_int(read[VLID]);
    m_base->printed = AuditUtil::to_bool(read[PRINTED]);
    m_base->mailed = AuditUtil::to_bool(read[MAILED]);
    m_base->efiled = AuditUtil::to_bool(read[EFILED]);
    m_base->corrected = AuditUtil::to_bool(read[CORRECTED]);
    m_base->replaceable = AuditUtil::to_bool(read[REPLACEABLE]);
    m_base->replacement = AuditUtil::to_bool(read[REPLACEMENT]);
    // The file's path carries the directory of the machine that saved it; only its tail counts.
    // One conversion suffices: a relative path converts to itself.
    add_relative_path(texts, read[KRF_PATH]);
    m_base->text.assign(std::move(texts));
}

CFilingBase::~CFilingBase()
{
    shared_block::destroy(m_base);
}

void* CFilingBase::derived_record() const
{
    return shared_block::room_behind(m_base);
}

void CFilingBase::read_date(const char* text) const
{
    // A missing date keeps the default; a broken one reads as invalid, and that is all.
    if (text != nullptr && *text != '\0')
        m_base->date.parse(text);
}

COXMLNode* CFilingBase::create_xml_node(COXMLDocument* document, const char* name) const
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
void CFilingBase::write_attributes(Writer& element) const
{
    if (m_base->date.get_days() != 0.0)
        element.text("Date", m_base->date.format(kDateFormat));
    element.text("Type", to_type_string(m_base->type));
    element.text("Identifier", m_base->text.c_str(Record::IDENTIFIER));
    element.number("VLID", m_base->vlid);
    element.flag("Printed", m_base->printed);
    element.flag("Mailed", m_base->mailed);
    element.flag("Efiled", m_base->efiled);
    element.flag("Corrected", m_base->corrected);
    element.flag("Replaceable", m_base->replaceable);
    element.flag("Replacement", m_base->replacement);
    element.text("KRFPath", get_krf_file_location());
}

template void CFilingBase::write_attributes(oxml::TextWriter&) const;

const attributeDicList& AttributeLists::fill_filing_base(const CFilingBase& record)
{
    // Unlike the document, the list holds a zero date too, and the replaceable flag only on a copy.
    std::string values[] = {
        record.get_date().format(kDateFormat),
        CFilingBase::to_type_string(record.get_type()),
        record.get_identifier(),
        AuditUtil::to_string(record.get_vlid()),
        AuditUtil::to_string(record.get_printed_flag()),
        AuditUtil::to_string(record.get_mailed_flag()),
        AuditUtil::to_string(record.get_efiled_flag()),
        AuditUtil::to_string(record.get_corrected_flag()),
        AuditUtil::to_string(record.get_replacement_flag()),
        record.get_krf_file_location(),
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::FILING_BASE);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = std::move(values[i]);
    return table;
}

attributeDicList CFilingBase::getAndFillMapBase() const
{
    return AttributeLists::fill_filing_base(*this);
}

std::string CFilingBase::to_type_string(Vellument::FILING_TYPE type)
{
    return Vellument::Text::filing_type_to_string(type);
}

Vellument::FILING_TYPE CFilingBase::to_filing_type(const std::string& text)
{
    return Vellument::Text::string_to_filing_type(text);
}

Vellument::FILING_TYPE CFilingBase::get_type() const { return m_base->type; }
void CFilingBase::set_type(Vellument::FILING_TYPE type) const { m_base->type = type; }

std::string CFilingBase::get_identifier() const { return m_base->text.get(Record::IDENTIFIER); }
void CFilingBase::set_identifier(const std::string& identifier) const
{
    m_base->text.set(Record::IDENTIFIER, identifier);
}

std::string CFilingBase::get_krf_file_location() const
{
    return CPathHandling::convert_path_to_absolute(m_base->text.c_str(Record::KRF_FILE_LOCATION));
}
void CFilingBase::set_krf_file_location(const std::string& path) const
{
    m_base->text.set(Record::KRF_FILE_LOCATION, CPathHandling::convert_path_to_relative(path.c_str()));
}

int CFilingBase::get_vlid() const { return m_base->vlid; }
void CFilingBase::set_vlid(int vlid) const { m_base->vlid = vlid; }

bool CFilingBase::get_printed_flag() const { return m_base->printed; }
void CFilingBase::set_printed_flag(bool flag) const { m_base->printed = flag; }

bool CFilingBase::get_mailed_flag() const { return m_base->mailed; }
void CFilingBase::set_mailed_flag(bool flag) const { m_base->mailed = flag; }

bool CFilingBase::get_efiled_flag() const { return m_base->efiled; }
void CFilingBase::set_efiled_flag(bool flag) const { m_base->efiled = flag; }

bool CFilingBase::get_corrected_flag() const { return m_base->corrected; }
void CFilingBase::set_corrected_flag(bool flag) const { m_base->corrected = flag; }

bool CFilingBase::get_replacement_flag() const { return m_base->replacement; }
void CFilingBase::set_replacement_flag(bool flag) const { m_base->replacement = flag; }

bool CFilingBase::get_replaceable_flag() const { return m_base->replaceable; }
void CFilingBase::set_replaceable_flag(bool flag) const { m_base->replaceable = flag; }

CDateTime CFilingBase::get_date() const { return m_base->date; }
void CFilingBase::set_date(CDateTime date) const { m_base->date = date; }
