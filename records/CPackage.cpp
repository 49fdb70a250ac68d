#include <vellument/CPackage.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include <vellument/AuditUtil.h>
#include <vellument/CFiling.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"

namespace {
const char* const kDateFormat = "%m/%d/%Y %H:%M:%S";
}

struct CPackage::Record {
    int deleted_employee_count = 0;
    int added_employee_count = 0;
    int corrected_ew2_employee_count = 0;
    int added_ew2_employee_count = 0;
    int deleted_ew2_employee_count = 0;
    bool call_efiler = false;
    bool web_service_unavailable = false;
    bool additional_filing_mode = false;
    std::string builder_version;
    std::string invoice_amount;
    CDateTime package_date = CDateTime::now();
    std::vector<CFiling*> filings;
};

CPackage::CPackage()
    : CStatusBase()
    , m_package(new Record)
{
}

CPackage::CPackage(const CPackage* source)
    : CStatusBase(source)
    , m_package(new Record)
{
    if (source == nullptr)
        return;
    const Record& from = *source->m_package;
    m_package->deleted_employee_count = from.deleted_employee_count;
    m_package->added_employee_count = from.added_employee_count;
    m_package->corrected_ew2_employee_count = from.corrected_ew2_employee_count;
    m_package->added_ew2_employee_count = from.added_ew2_employee_count;
    m_package->deleted_ew2_employee_count = from.deleted_ew2_employee_count;
    m_package->call_efiler = from.call_efiler;
    m_package->web_service_unavailable = from.web_service_unavailable;
    m_package->additional_filing_mode = from.additional_filing_mode;
    m_package->builder_version = from.builder_version;
    m_package->invoice_amount = from.invoice_amount;
    m_package->package_date = from.package_date;
    m_package->filings.reserve(from.filings.size());
    for (const CFiling* filing : from.filings)
        m_package->filings.push_back(new CFiling(filing));
}

CPackage::CPackage(COXMLNode* node)
    : CStatusBase(node)
    , m_package(new Record)
{
    if (node == nullptr)
        return;
    m_package->builder_version = node->getAttribute("BuilderVersion");
    m_package->invoice_amount = node->getAttribute("InvoiceAmount");
    m_package->added_employee_count = AuditUtil::to_int(node->getAttribute("AddedCount"));
    m_package->deleted_employee_count = AuditUtil::to_int(node->getAttribute("DeletedCount"));
    m_package->corrected_ew2_employee_count = AuditUtil::to_int(node->getAttribute("CorrectedEW2EmployeeCount"));
    m_package->added_ew2_employee_count = AuditUtil::to_int(node->getAttribute("AddedEW2EmployeeCount"));
    m_package->deleted_ew2_employee_count = AuditUtil::to_int(node->getAttribute("DeletedEW2EmployeeCount"));
    m_package->additional_filing_mode = AuditUtil::to_bool(node->getAttribute("AdditionalMode"));
    m_package->web_service_unavailable = AuditUtil::to_bool(node->getAttribute("WebServiceFail"));
    // A missing date keeps the time of reading; a broken one reads as invalid.
    const char* date = node->getAttribute("PackageDate");
    if (date != nullptr && *date != '\0')
        m_package->package_date.parse(date);

    // Every Filing below the package, at any depth, in document order. A file that nests
    // records inside records reads the deeper ones once per level; that cost is bounded by the
    // file's size times its depth.
    std::shared_ptr<COXMLNodeList> filings = node->getElementsByTagName("Filing");
    if (!filings)
        return;
    int count = filings->length();
    m_package->filings.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        COXMLNode* filing = filings->item(i);
        if (filing != nullptr)
            m_package->filings.push_back(new CFiling(filing));
    }
}

CPackage::~CPackage()
{
    delete_filings();
    delete m_package;
}

COXMLNode* CPackage::create_xml_node(COXMLDocument* document) const
{
    COXMLNode* element = CStatusBase::create_xml_node(document, "Package", get_filing_count());
    if (element == nullptr || m_package->filings.empty())
        return element;

    oxml::ElementWriter own(document, element);
    write_attributes(own);
    for (const CFiling* filing : m_package->filings) {
        COXMLNode* child = filing->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    return element;
}

// Only a package with filings has these.
template <class Writer>
void CPackage::write_attributes(Writer& own) const
{
    const Record& r = *m_package;
    own.text("BuilderVersion", r.builder_version);
    own.text("InvoiceAmount", r.invoice_amount);
    own.number("AddedCount", r.added_employee_count);
    own.number("DeletedCount", r.deleted_employee_count);
    own.number("CorrectedEW2EmployeeCount", r.corrected_ew2_employee_count);
    own.number("AddedEW2EmployeeCount", r.added_ew2_employee_count);
    own.number("DeletedEW2EmployeeCount", r.deleted_ew2_employee_count);
    own.flag("AdditionalMode", r.additional_filing_mode);
    own.flag("WebServiceFail", r.web_service_unavailable);
    if (r.package_date.get_days() != 0.0)
        own.text("PackageDate", r.package_date.format(kDateFormat));
}

void CPackage::write_text(oxml::TextWriter& out) const
{
    out.open("Package");
    CStatusBase::write_attributes(out);
    if (!m_package->filings.empty())
        write_attributes(out);
    if (out.built_instead(*this))
        return;
    for (const CFiling* filing : m_package->filings)
        out.record(*filing);
    out.close();
}

const attributeDicList& AttributeLists::fill_package(const CPackage& record)
{
    attributeDicList& table = AttributeLists::table(AttributeLists::PACKAGE);
    table.at(0).attributeValue = record.get_builder_version();
    table.at(1).attributeValue = record.get_invoice_amount();
    table.at(2).attributeValue = AuditUtil::to_string(record.get_added_employee_count());
    table.at(3).attributeValue = AuditUtil::to_string(record.get_deleted_employee_count());
    table.at(4).attributeValue = AuditUtil::to_string(record.get_corrected_ew2_employee_count());
    table.at(5).attributeValue = AuditUtil::to_string(record.get_added_ew2_employee_count());
    table.at(6).attributeValue = AuditUtil::to_string(record.get_deleted_ew2_employee_count());
    table.at(7).attributeValue = AuditUtil::to_string(record.get_additional_filing_mode_flag());
    table.at(8).attributeValue = AuditUtil::to_string(record.get_web_service_unavailable_flag());
    table.at(9).attributeValue = record.get_package_date().format(kDateFormat);
    return table;
}

attributeDicList CPackage::getAndFillMap() const
{
    return AttributeLists::fill_package(*this);
}

int CPackage::get_filing_count() const
{
    return static_cast<int>(m_package->filings.size());
}

CFiling* CPackage::get_filing_at(int index) const
{
    if (index < 0 || index >= get_filing_count())
        throw std::invalid_argument("CPackage::get_filing_at: index out of range");
    return m_package->filings[static_cast<std::size_t>(index)];
}

void CPackage::add_filing(CFiling* filing) const
{
    if (filing != nullptr)
        m_package->filings.push_back(filing);
}

void CPackage::delete_filings() const
{
    // Emptied first, so a filing's destructor never sees a half-cleared array.
    std::vector<CFiling*> filings;
    filings.swap(m_package->filings);
    for (CFiling* filing : filings)
        delete filing;
}

int CPackage::get_deleted_employee_count() const { return m_package->deleted_employee_count; }
void CPackage::set_deleted_employee_count(int count) const { m_package->deleted_employee_count = count; }
int CPackage::get_deleted_recipient_count() const { return m_package->deleted_employee_count; }
void CPackage::set_deleted_recipient_count(int count) const { m_package->deleted_employee_count = count; }

int CPackage::get_added_employee_count() const { return m_package->added_employee_count; }
void CPackage::set_added_employee_count(int count) const { m_package->added_employee_count = count; }
int CPackage::get_added_recipient_count() const { return m_package->added_employee_count; }
void CPackage::set_added_recipient_count(int count) const { m_package->added_employee_count = count; }

int CPackage::get_corrected_ew2_employee_count() const { return m_package->corrected_ew2_employee_count; }
void CPackage::set_corrected_ew2_employee_count(int count) const { m_package->corrected_ew2_employee_count = count; }
int CPackage::get_added_ew2_employee_count() const { return m_package->added_ew2_employee_count; }
void CPackage::set_added_ew2_employee_count(int count) const { m_package->added_ew2_employee_count = count; }
int CPackage::get_deleted_ew2_employee_count() const { return m_package->deleted_ew2_employee_count; }
void CPackage::set_deleted_ew2_employee_count(int count) const { m_package->deleted_ew2_employee_count = count; }

bool CPackage::get_call_efiler_flag() const { return m_package->call_efiler; }
void CPackage::set_call_efiler_flag(bool flag) const { m_package->call_efiler = flag; }
bool CPackage::get_web_service_unavailable_flag() const { return m_package->web_service_unavailable; }
void CPackage::set_web_service_unavailable_flag(bool flag) const { m_package->web_service_unavailable = flag; }
bool CPackage::get_additional_filing_mode_flag() const { return m_package->additional_filing_mode; }
void CPackage::set_additional_filing_mode_flag(bool flag) const { m_package->additional_filing_mode = flag; }

std::string CPackage::get_builder_version() const { return m_package->builder_version; }
void CPackage::set_builder_version(const char* version) const
{
    m_package->builder_version = version != nullptr ? version : "";
}

std::string CPackage::get_invoice_amount() const { return m_package->invoice_amount; }
void CPackage::set_invoice_amount(const char* amount) const
{
    m_package->invoice_amount = amount != nullptr ? amount : "";
}

CDateTime CPackage::get_package_date() const { return m_package->package_date; }
void CPackage::set_package_date(CDateTime date) const { m_package->package_date = date; }
