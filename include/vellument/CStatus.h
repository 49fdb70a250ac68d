#ifndef VELLUMENT_CSTATUS_H
#define VELLUMENT_CSTATUS_H

#include <vellument/CStatusBase.h>
#include <vellument/VellumentTypes.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

class CCopy;
class CPackage;

namespace oxml {
class TextWriter;
}

// Where things stand after a transaction: one CCopy for each filed unit, found again by its
// filing type and identifier. A copy's type and identifier must not change after add_copy.
class VELLUMENT_API CStatus : public CStatusBase {
public:
    CStatus();
    // Deep copy: base copy and a CCopy(const CCopy*) of each copy. A null source gives an empty
    // status.
    explicit CStatus(const CStatus* source);
    // Reads the status attributes and each Copy child of the node, in document order.
    // A null node gives an empty status.
    explicit CStatus(COXMLNode* node);
    // Deletes the copies.
    ~CStatus();

    CStatus(const CStatus&) = delete;
    CStatus& operator=(const CStatus&) = delete;

    // A "Status" element with the status base attributes, then the copies' elements.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    using CStatusBase::create_xml_node;
    // Always empty: the status base list serves a status.
    attributeDicList getAndFillMap() const;

    // A new status, owned by the caller: a deep copy of status with the package's choice OR-ed in
    // and the package's kxn path and five counters taken over. A null status counts as empty, a
    // null package changes nothing.
    static CStatus* create_status_from_package(const CStatus* status, const CPackage* package);

    // True when any copy has its efiled flag set.
    bool getAnyEfiledStatus() const;

    int get_copy_count() const;
    // Lent. A bad index raises std::invalid_argument.
    CCopy* get_copy_at(int index) const;
    // The copy stored under type and identifier (null counts as empty). For types other than
    // State and Local a miss falls back to the identifier "FE". Lent, or null.
    CCopy* get_copy_by_type(Vellument::FILING_TYPE type, const char* identifier) const;
    // The status takes ownership; a later copy of the same key hides the earlier one from
    // get_copy_by_type. Null is ignored.
    void add_copy(CCopy* copy) const;
    // Deletes the copy and closes the gap. A bad index raises std::invalid_argument.
    void remove_copy_at(int index) const;
    // Deletes the copy that get_copy_by_type finds, if any.
    void remove_copy_by_type(Vellument::FILING_TYPE type, const char* identifier) const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
    struct Record;
    Record* m_status;
};

#endif
