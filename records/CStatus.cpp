#include <vellument/CStatus.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CPackage.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_TextWriter.h"

namespace {

// The copies of a status by type and identifier (up to its first NUL); the copy added last under a
// key is the one found. A flat array in one block instead of a tree node per copy: entries before
// `sorted_` are ordered and unique, those after it are in order of adding and are sorted in when
// a lookup finds more than a few of them, so a status read from a document, which only adds,
// sorts once.
class CopyIndex {
public:
    void reserve(std::size_t n) { entries_.reserve(n); }

    void add(int type, const char* identifier, CCopy* copy)
    {
        entries_.push_back(Entry{type, identifier != nullptr ? identifier : "", copy});
    }

    CCopy* find(int type, const char* identifier)
    {
        if (entries_.size() - sorted_ > kLooseLimit)
            fold();
        const Entry wanted{type, identifier != nullptr ? identifier : "", nullptr};
        for (std::size_t i = entries_.size(); i > sorted_; --i)
            if (same_key(entries_[i - 1], wanted))
                return entries_[i - 1].copy;
        auto end = entries_.begin() + static_cast<std::ptrdiff_t>(sorted_);
        auto at = std::lower_bound(entries_.begin(), end, wanted, less);
        return at != end && same_key(*at, wanted) ? at->copy : nullptr;
    }

    // Takes the entry under the copy's present key out, whatever copy it names, and then every
    // entry that still names the copy, also one left under an older key by a caller that changed
    // the copy's identity after adding it.
    void forget(const CCopy* copy)
    {
        fold();
        const Entry wanted{copy->get_type(), copy->get_identifier().c_str(), nullptr};
        auto end = entries_.begin() + static_cast<std::ptrdiff_t>(sorted_);
        auto at = std::lower_bound(entries_.begin(), end, wanted, less);
        if (at != end && same_key(*at, wanted))
            entries_.erase(at);
        entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                      [copy](const Entry& e) { return e.copy == copy; }),
                       entries_.end());
        sorted_ = entries_.size();
    }

private:
    struct Entry {
        int type;
        std::string identifier;
        CCopy* copy;
    };
    static constexpr std::size_t kLooseLimit = 16;

    static bool less(const Entry& a, const Entry& b)
    {
        return a.type != b.type ? a.type < b.type : a.identifier < b.identifier;
    }
    static bool same_key(const Entry& a, const Entry& b) { return a.type == b.type && a.identifier == b.identifier; }

    // Sorts the loose entries in, keeping of each key only the one added last.
    void fold()
    {
        if (sorted_ == entries_.size())
            return;
        auto middle = entries_.begin() + static_cast<std::ptrdiff_t>(sorted_);
        // Both steps are stable: of equal keys, the one added last stands last.
        std::stable_sort(middle, entries_.end(), less);
        std::inplace_merge(entries_.begin(), middle, entries_.end(), less);
        std::size_t kept = 0;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            if (i + 1 < entries_.size() && same_key(entries_[i], entries_[i + 1]))
                continue;
            if (kept != i)
                entries_[kept] = std::move(entries_[i]);
            ++kept;
        }
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(kept), entries_.end());
        sorted_ = entries_.size();
    }

    std::vector<Entry> entries_;
    std::size_t sorted_ = 0;
};

} // namespace

struct CStatus::Record {
    std::vector<CCopy*> copies;
    // The copies by key; owns nothing.
    CopyIndex copy_map;
};

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
    m_status->copy_map.reserve(source->m_status->copies.size());
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
    m_status->copy_map.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        COXMLNode* copy = copies->item(i);
        if (copy != nullptr)
            add_copy(new CCopy(copy));
    }
}

CStatus::~CStatus()
{
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

void CStatus::write_text(oxml::TextWriter& out) const
{
    out.open("Status");
    CStatusBase::write_attributes(out);
    if (out.built_instead(*this))
        return;
    for (const CCopy* copy : m_status->copies)
        out.record(*copy);
    out.close();
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
    if (CCopy* found = m_status->copy_map.find(type, identifier))
        return found;
    // State and local copies must match exactly; every other level has one unit, stored as "FE".
    if (type == Vellument::FILING_TYPE_STATE || type == Vellument::FILING_TYPE_LOCAL)
        return nullptr;
    return m_status->copy_map.find(type, "FE");
}

void CStatus::add_copy(CCopy* copy) const
{
    if (copy == nullptr)
        return;
    m_status->copies.push_back(copy);
    m_status->copy_map.add(copy->get_type(), copy->get_identifier().c_str(), copy);
}

void CStatus::remove_copy_at(int index) const
{
    if (index < 0 || index >= get_copy_count())
        throw std::invalid_argument("CStatus::remove_copy_at: index out of range");
    auto position = m_status->copies.begin() + index;
    CCopy* copy = *position;
    m_status->copy_map.forget(copy);
    m_status->copies.erase(position);
    delete copy;
}

void CStatus::remove_copy_by_type(Vellument::FILING_TYPE type, const char* identifier) const
{
    CCopy* copy = get_copy_by_type(type, identifier);
    if (copy == nullptr)
        return;
    m_status->copy_map.forget(copy);
    std::vector<CCopy*>& copies = m_status->copies;
    for (auto it = copies.begin(); it != copies.end(); ++it) {
        if (*it == copy) {
            copies.erase(it);
            break;
        }
    }
    delete copy;
}
