#include <vellument/CStatus.h>

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CPackage.h>
#include <vellument/Ostrel_XML.h>

struct CStatus::Record {
    std::vector<CCopy*> copies;
    // An index into copies by key; owns nothing.
    std::map<std::string, CCopy*> copy_map;
};

namespace {

std::string make_key(int type, const char* identifier)
{
    char number[16];
    std::snprintf(number, sizeof number, "%i", type);
    std::string key(number);
    key += '|';
    if (identifier != nullptr)
        key += identifier;
    return key;
}

std::string key_of(const CCopy* copy)
{
    return make_key(copy->get_type(), copy->get_identifier().c_str());
}

// Takes every entry that still points at a copy about to be deleted out of the index, also one
// left under an older key by a caller that changed the copy's identity after adding it.
void forget(std::map<std::string, CCopy*>& map, const CCopy* copy)
{
    map.erase(key_of(copy));
    for (auto it = map.begin(); it != map.end();) {
        if (it->second == copy)
            it = map.erase(it);
        else
            ++it;
    }
}

} // namespace

CStatus::CStatus()
    : CStatusBase()
    , m_status(new Record)
{
}

CStatus::CStatus(const CStatus* source)
    : CStatusBase(source)
    , m_status(new Record)
{
    if (source == nullptr)
        return;
    m_status->copies.reserve(source->m_status->copies.size());
    for (const CCopy* copy : source->m_status->copies)
        add_copy(new CCopy(copy));
}

CStatus::CStatus(COXMLNode* node)
    : CStatusBase(node)
    , m_status(new Record)
{
    if (node == nullptr)
        return;
    // Every Copy below the status, at any depth, in document order.
    std::shared_ptr<COXMLNodeList> copies = node->getElementsByTagName("Copy");
    if (!copies)
        return;
    int count = copies->length();
    m_status->copies.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        COXMLNode* copy = copies->item(i);
        if (copy != nullptr)
            add_copy(new CCopy(copy));
    }
}

CStatus::~CStatus()
{
    m_status->copy_map.clear();
    for (CCopy* copy : m_status->copies)
        delete copy;
    delete m_status;
}

COXMLNode* CStatus::create_xml_node(COXMLDocument* document) const
{
    COXMLNode* element = CStatusBase::create_xml_node(document, "Status", 0);
    if (element == nullptr)
        return nullptr;
    for (const CCopy* copy : m_status->copies) {
        COXMLNode* child = copy->create_xml_node(document);
        if (child != nullptr)
            element->appendChild(child, true);
    }
    return element;
}

attributeDicList CStatus::getAndFillMap() const
{
    return attributeDicList();
}

CStatus* CStatus::create_status_from_package(const CStatus* status, const CPackage* package)
{
    CStatus* result = new CStatus(status);
    if (package == nullptr)
        return result;
    // A choice made once stays on in every later status.
    result->set_filing_options(result->get_filing_options() | package->get_filing_options());
    result->set_kxn_path(package->get_kxn_path().c_str());
    result->set_employee_count(package->get_employee_count());
    result->set_ew2_employee_count(package->get_ew2_employee_count());
    result->set_state_employee_count(package->get_state_employee_count());
    result->set_local_employee_count(package->get_local_employee_count());
    result->set_corrected_employee_count(package->get_corrected_employee_count());
    return result;
}

bool CStatus::getAnyEfiledStatus() const
{
    for (const CCopy* copy : m_status->copies)
        if (copy->get_efiled_flag())
            return true;
    return false;
}

int CStatus::get_copy_count() const
{
    return static_cast<int>(m_status->copies.size());
}

CCopy* CStatus::get_copy_at(int index) const
{
    if (index < 0 || index >= get_copy_count())
        throw std::invalid_argument("CStatus::get_copy_at: index out of range");
    return m_status->copies[static_cast<std::size_t>(index)];
}

CCopy* CStatus::get_copy_by_type(Vellument::FILING_TYPE type, const char* identifier) const
{
    const std::map<std::string, CCopy*>& map = m_status->copy_map;
    auto found = map.find(make_key(type, identifier));
    if (found != map.end())
        return found->second;
    // State and local copies must match exactly; every other level has one unit, stored as "FE".
    if (type == Vellument::FILING_TYPE_STATE || type == Vellument::FILING_TYPE_LOCAL)
        return nullptr;
    found = map.find(make_key(type, "FE"));
    return found != map.end() ? found->second : nullptr;
}

void CStatus::add_copy(CCopy* copy) const
{
    if (copy == nullptr)
        return;
    m_status->copies.push_back(copy);
    m_status->copy_map[key_of(copy)] = copy;
}

void CStatus::remove_copy_at(int index) const
{
    if (index < 0 || index >= get_copy_count())
        throw std::invalid_argument("CStatus::remove_copy_at: index out of range");
    auto position = m_status->copies.begin() + index;
    CCopy* copy = *position;
    forget(m_status->copy_map, copy);
    m_status->copies.erase(position);
    delete copy;
}

void CStatus::remove_copy_by_type(Vellument::FILING_TYPE type, const char* identifier) const
{
    CCopy* copy = get_copy_by_type(type, identifier);
    if (copy == nullptr)
        return;
    forget(m_status->copy_map, copy);
    std::vector<CCopy*>& copies = m_status->copies;
    for (auto it = copies.begin(); it != copies.end(); ++it) {
        if (*it == copy) {
            copies.erase(it);
            break;
        }
    }
    delete copy;
}
