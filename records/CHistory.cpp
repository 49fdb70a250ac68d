#include <vellument/CHistory.h>

#include <vellument/CForm.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_TextWriter.h"

CHistory::CHistory() : CFormBase() {}

CHistory::CHistory(const CFormBase* source) : CFormBase(source) {}

CHistory::CHistory(const CForm* source) : CFormBase(static_cast<const CFormBase*>(source)) {}

CHistory::CHistory(COXMLNode* node) : CFormBase(node) {}

CHistory::~CHistory() = default;

COXMLNode* CHistory::create_xml_node(COXMLDocument* document) const
{
    return CFormBase::create_xml_node(document, "History");
}

void CHistory::write_text(oxml::TextWriter& out) const
{
    out.open("History");
    CFormBase::write_attributes(out);
    if (!out.built_instead(*this))
        out.close();
}

attributeDicList CHistory::getAndFillMap() const
{
    return attributeDicList();
}
