#ifndef VELLUMENT_CHISTORY_H
#define VELLUMENT_CHISTORY_H

#include <vellument/CFormBase.h>
#include <vellument/export.h>

class CForm;

namespace oxml {
class TextWriter;
}

// A completed form as a copy of the status keeps it: a form base with its own element name.
class VELLUMENT_API CHistory : public CFormBase {
public:
    CHistory();
    // Form base copy, completion included.
    explicit CHistory(const CFormBase* source);
    explicit CHistory(const CForm* source);
    // Form base read; completion stays Append.
    explicit CHistory(COXMLNode* node);
    ~CHistory();

    CHistory(const CHistory&) = delete;
    CHistory& operator=(const CHistory&) = delete;

    // A "History" element with the form base attributes.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    // Always empty: the form base list serves a history.
    attributeDicList getAndFillMap() const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
};

#endif
