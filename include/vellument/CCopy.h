#ifndef VELLUMENT_CCOPY_H
#define VELLUMENT_CCOPY_H

#include <vellument/CFilingBase.h>
#include <vellument/export.h>

class CFiling;
class CForm;
class CHistory;

namespace oxml {
class TextWriter;
}

// What the status knows about one filed unit: the filing base, a deleted flag and the completed
// forms as histories.
class VELLUMENT_API CCopy : public CFilingBase {
public:
    CCopy();
    // Base copy (mailed false), the deleted flag and a deep copy of every history.
    explicit CCopy(const CCopy* source);
    // Base copy (mailed false), deleted false, one history per form of the filing.
    explicit CCopy(const CFiling* filing);
    explicit CCopy(COXMLNode* node);
    ~CCopy() override;

    CCopy(const CCopy&) = delete;
    CCopy& operator=(const CCopy&) = delete;

    // A "Copy" element: the filing base attributes, Deleted, then the histories.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    attributeDicList getAndFillMap() const;

    bool get_deleted_flag() const;
    void set_deleted_flag(bool flag) const;

    // Histories: add_history takes ownership, get_history_at lends, remove_history_at deletes.
    // A bad index raises std::invalid_argument and leaves the histories as they were.
    int get_history_count() const;
    CHistory* get_history_at(int index) const;
    void add_history(CHistory* history) const;
    void remove_history_at(int index) const;

    // Enters a finished form: a Replace form first removes histories of its type (walking
    // upward, moving on after each removal), then a history of the form is appended.
    void complete_form(const CForm* form) const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
    template <class Writer>
    void write_attributes(Writer& writer) const;
    struct Record;
    Record* m_copy;
};

#endif
