#ifndef VELLUMENT_TOOLKIT_CKXMLDOCUMENT_H
#define VELLUMENT_TOOLKIT_CKXMLDOCUMENT_H

#include <vellument/export.h>

class CkXml;
class COXMLDocument;

// A document of the library's XML interface with the element tree below the cursor: tags,
// attributes in order and element text. The cursor passes to this call, which deletes it. Null,
// with the cursor still deleted, if the tree is bad or the document can't be made.
VELLUMENT_API COXMLDocument* ckxml_to_document(CkXml* root);

#endif
