#include <vellument/CTransaction.h>

#include <string>

#include <vellument/AuditUtil.h>
#include <vellument/CDictionary.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"
#include "records/AttributeLists.h"
#include "records/EnumText.h"

struct CTransaction::Record {
    Vellument::ActionType action = Vellument::ACTION_NONE;
    CPackage* package = nullptr;
    CStatus* status = nullptr;
    CDictionary* dictionary = nullptr;
    bool is_test = false;
    int number = 0;
};

namespace {

// The child element of that name directly below the node, or null.
COXMLNode* child_of(COXMLNode* node, const char* name)
{
    std::string path("./");
    path += name;
    return node->selectSingleNode(path.c_str());
}

} // namespace

CTransaction::CTransaction()
    : m_record(new Record)
{
    m_record->package = new CPackage();
    m_record->status = new CStatus();
    m_record->dictionary = new CDictionary();
}

CTransaction::CTransaction(CStatus* status)
    : m_record(new Record)
{
    m_record->package = new CPackage();
    m_record->status = status != nullptr ? status : new CStatus();
    m_record->dictionary = new CDictionary();
}

CTransaction::CTransaction(COXMLNode* node)
    : m_record(new Record)
{
    if (node == nullptr) {
        m_record->package = new CPackage();
        m_record->status = new CStatus();
        m_record->dictionary = new CDictionary();
        return;
    }
    m_record->action = Vellument::Text::string_to_action(node->getAttribute("Action"));
    m_record->dictionary = new CDictionary(child_of(node, "Dictionary"));
    // A missing Package or Status reads as an empty one rather than leaving a hole in the trail.
    m_record->package = new CPackage(child_of(node, "Package"));
    m_record->status = new CStatus(child_of(node, "Status"));
}

CTransaction::~CTransaction()
{
    if (m_record->dictionary != nullptr)
        m_record->dictionary->clear();
    delete m_record->dictionary;
    delete m_record->status;
    delete m_record->package;
    delete m_record;
}

std::string CTransaction::GetActionTypeToString(Vellument::ActionType action)
{
    return Vellument::Text::action_to_string(action);
}

Vellument::ActionType CTransaction::get_action() const { return m_record->action; }
void CTransaction::set_action(Vellument::ActionType action) const { m_record->action = action; }
bool CTransaction::get_is_test() const { return m_record->is_test; }
void CTransaction::set_is_test(bool is_test) const { m_record->is_test = is_test; }
int CTransaction::get_number() const { return m_record->number; }
void CTransaction::set_number(int number) const { m_record->number = number; }

CPackage* CTransaction::get_package() const { return m_record->package; }
CStatus* CTransaction::get_status() const { return m_record->status; }
CDictionary* CTransaction::get_dictionary() const { return m_record->dictionary; }

void CTransaction::set_package(CPackage* package) const
{
    // Deleting the pointer we are about to keep would leave it dangling.
    if (package == m_record->package)
        return;
    delete m_record->package;
    m_record->package = package;
}

void CTransaction::set_status(CStatus* status) const
{
    if (status == m_record->status)
        return;
    delete m_record->status;
    m_record->status = status;
}

void CTransaction::set_dictionary(CDictionary* dictionary) const
{
    if (dictionary == m_record->dictionary)
        return;
    delete m_record->dictionary;
    m_record->dictionary = dictionary;
}

template <class Writer>
void CTransaction::write_attributes(Writer& writer) const
{
    writer.text("Action", GetActionTypeToString(m_record->action));
}

// The dictionary's element was built ahead, in the same order, so that what it logs comes where
// building the whole tree would log it.
void CTransaction::write_text(oxml::TextWriter& out) const
{
    out.open("Transaction");
    write_attributes(out);
    if (out.built_instead(*this))
        return;
    if (m_record->dictionary != nullptr && !m_record->dictionary->empty())
        out.element(out.next_ready());
    if (m_record->package != nullptr)
        out.record(*m_record->package);
    if (m_record->status != nullptr)
        out.record(*m_record->status);
    out.close();
}

COXMLNode* CTransaction::create_xml_node(COXMLDocument* document) const
{
    if (document == nullptr)
        return nullptr;
    oxml::ElementWriter writer(document, "Transaction");
    COXMLNode* element = writer.element();
    if (element == nullptr)
        return nullptr;
    write_attributes(writer);

    // Only a dictionary with entries leaves an element; a missing one reads back empty.
    if (m_record->dictionary != nullptr && !m_record->dictionary->empty()) {
        COXMLNode* child = m_record->dictionary->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    if (m_record->package != nullptr) {
        COXMLNode* child = m_record->package->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    if (m_record->status != nullptr) {
        COXMLNode* child = m_record->status->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    return element;
}

const attributeDicList& AttributeLists::fill_transaction(const CTransaction& record)
{
    attributeDicList& table = AttributeLists::table(AttributeLists::TRANSACTION);
    table.at(0).attributeValue = CTransaction::GetActionTypeToString(record.get_action());
    table.at(1).attributeValue = AuditUtil::to_string(record.get_number());
    return table;
}

attributeDicList CTransaction::getAndFillMap() const
{
    return AttributeLists::fill_transaction(*this);
}
