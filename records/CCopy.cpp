#include <vellument/CCopy.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <vellument/AuditUtil.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"
#include "records/InlineList.h"
#include "records/SharedBlock.h"

struct CCopy::Record {
    bool deleted = false;
    InlineList<CHistory*, 4> histories;  // owned, in order of adding

    Record() = default;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record()
    {
        for (CHistory* history : histories)
            delete history;
    }

    // Takes the history over even when growing the array fails.
    void append(CHistory* history)
    {
        std::unique_ptr<CHistory> owned(history);
        histories.push_back(owned.get());
        owned.release();
    }
};

namespace {

const char* const kReadNames[] = {"Deleted", "Date"};

void check_index(int index, size_t size)
{
    if (index < 0 || static_cast<size_t>(index) >= size)
        throw std::invalid_argument("CCopy: history index " + std::to_string(index) + " out of range 0.." +
                                    std::to_string(static_cast<long long>(size) - 1));
}

} // namespace

CCopy::CCopy() : CFilingBase(Extra{sizeof(Record)}), m_copy(new (derived_record()) Record) {}

CCopy::CCopy(const CCopy* source)
    : CFilingBase(source, Extra{sizeof(Record)}), m_copy(new (derived_record()) Record)
{
    if (source == nullptr)
        return;
    try {
        m_copy->deleted = source->m_copy->deleted;
        for (const CHistory* history : source->m_copy->histories)
            m_copy->append(new CHistory(static_cast<const CFormBase*>(history)));
    } catch (...) {
        m_copy->~Record();
        throw;
    }
}

CCopy::CCopy(const CFiling* filing)
    : CFilingBase(filing, Extra{sizeof(Record)}), m_copy(new (derived_record()) Record)
{
    if (filing == nullptr)
        return;
    try {
        // A history keeps only the form base of a form, completion included.
        for (int i = 0; i < filing->get_form_count(); ++i)
            m_copy->append(new CHistory(filing->get_form_at(i)));
    } catch (...) {
        m_copy->~Record();
        throw;
    }
}

CCopy::CCopy(COXMLNode* node)
    : CFilingBase(node, Extra{sizeof(Record)}), m_copy(new (derived_record()) Record)
{
    if (node == nullptr)
        return;
    try {
        const char* read[2];
        oxml::get_attributes(node, oxml::attribute_names(kReadNames), read);
        m_copy->deleted = AuditUtil::to_bool(read[0]);
        read_date(read[1]);
        // Every History below the copy, at any depth, in document order.
        std::shared_ptr<COXMLNodeList> histories = node->getElementsByTagName("History");
        if (histories) {
            const int count = histories->length();
            m_copy->histories.reserve(static_cast<size_t>(count));
            for (int i = 0; i < count; ++i) {
                COXMLNode* history = histories->item(i);
                if (history != nullptr)
                    m_copy->append(new CHistory(history));
            }
        }
    } catch (...) {
        m_copy->~Record();
        throw;
    }
}

CCopy::~CCopy()
{
    m_copy->~Record();
}

COXMLNode* CCopy::create_xml_node(COXMLDocument* document) const
{
    COXMLNode* element = CFilingBase::create_xml_node(document, "Copy");
    if (element == nullptr)
        return nullptr;
    oxml::ElementWriter own(document, element);
    write_attributes(own);
    for (const CHistory* history : m_copy->histories) {
        COXMLNode* child = history->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    return element;
}

template <class Writer>
void CCopy::write_attributes(Writer& own) const
{
    own.flag("Deleted", m_copy->deleted);
}

void CCopy::write_text(oxml::TextWriter& out) const
{
    out.open("Copy");
    CFilingBase::write_attributes(out);
    write_attributes(out);
    if (out.built_instead(*this))
        return;
    for (const CHistory* history : m_copy->histories)
        out.record(*history);
    out.close();
}

const attributeDicList& AttributeLists::fill_copy(const CCopy& record)
{
    std::string values[] = {
        AuditUtil::to_string(record.get_replaceable_flag()),
        AuditUtil::to_string(record.get_deleted_flag()),
    };
    attributeDicList& table = AttributeLists::table(AttributeLists::COPY);
    for (size_t i = 0; i < table.size() && i < sizeof(values) / sizeof(values[0]); ++i)
        table[i].attributeValue = std::move(values[i]);
    return table;
}

attributeDicList CCopy::getAndFillMap() const
{
    return AttributeLists::fill_copy(*this);
}

bool CCopy::get_deleted_flag() const { return m_copy->deleted; }
void CCopy::set_deleted_flag(bool flag) const { m_copy->deleted = flag; }

int CCopy::get_history_count() const
{
    return static_cast<int>(m_copy->histories.size());
}

CHistory* CCopy::get_history_at(int index) const
{
    check_index(index, m_copy->histories.size());
    return m_copy->histories[static_cast<size_t>(index)];
}

void CCopy::add_history(CHistory* history) const
{
    if (history != nullptr)
        m_copy->append(history);
}

void CCopy::remove_history_at(int index) const
{
    check_index(index, m_copy->histories.size());
    CHistory* history = m_copy->histories[static_cast<size_t>(index)];
    m_copy->histories.erase(m_copy->histories.begin() + index);
    delete history;
}

void CCopy::complete_form(const CForm* form) const
{
    if (form == nullptr)
        return;
    if (form->get_completion() == Vellument::FORM_COMPLETION_REPLACE) {
        // The index moves on after a removal as well, so the history that slid into the freed
        // place is not looked at: of two neighbours of one type the second stays.
        for (int i = 0; i < get_history_count(); ++i) {
            if (m_copy->histories[static_cast<size_t>(i)]->get_type() == form->get_type())
                remove_history_at(i);
        }
    }
    m_copy->append(new CHistory(form));
}
