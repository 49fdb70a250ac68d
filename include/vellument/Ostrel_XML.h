#ifndef VELLUMENT_OSTREL_XML_H
#define VELLUMENT_OSTREL_XML_H

// The library's XML document object model. Text crosses this interface in the ANSI code page
// (Windows-1252); documents are held and saved as UTF-8.

#include <memory>

#include <vellument/export.h>

class CkXml;
class COXMLDocument;
class COXMLNodeList;
class COXMLNamedNodeMap;
struct COXMLDocumentData;

// Codes that load and loadXML give for text that is not well-formed XML 1.0; the error text
// says what and where ("... at line 3, column 14"). Other failures give a system error code.
enum COXMLParseError {
    OXML_E_SYNTAX = 1001,              // markup out of order: a tag, attribute, comment, PI, CDATA
                                       // section, declaration or DOCTYPE, '<' in an attribute value,
                                       // "]]>" in text
    OXML_E_INVALID_CHARACTER = 1002,   // a character XML can't hold, or bytes that are not UTF-8
    OXML_E_INVALID_NAME = 1003,        // an element, attribute or PI name
    OXML_E_DUPLICATE_ATTRIBUTE = 1004, // one attribute twice on an element
    OXML_E_BAD_REFERENCE = 1005,       // a bare '&', an undeclared entity, a reference to a
                                       // character that XML forbids
    OXML_E_TAG_MISMATCH = 1006,        // an end tag that doesn't close the open element
    OXML_E_UNEXPECTED_END = 1007,      // the text ends inside markup or with an element open
    OXML_E_OUTSIDE_ROOT = 1008,        // a second root element, or text before or after the root
    OXML_E_NO_ROOT = 1009,
    OXML_E_ENCODING = 1010             // UTF-16 or UTF-32 bytes that are not such text
};

// One element of a tree, or one XML attribute when it comes out of a COXMLNamedNodeMap.
// Nodes are lent: they all die with their document.
class VELLUMENT_API COXMLNode {
public:
    virtual ~COXMLNode();
    COXMLNode(const COXMLNode&) = delete;
    COXMLNode& operator=(const COXMLNode&) = delete;

    // Appends a child made by createElement of the same document; returns the child.
    COXMLNode* appendChild(COXMLNode* child, bool flag) const;
    // Sets or overwrites an attribute; an empty value is allowed. A name that is no XML name is
    // not set. A control character that XML 1.0 can't hold, not even as a reference (U+0001 to
    // U+001F but tab, LF and CR), is stored as '?', as the code page conversion does with a
    // character it can't carry: every file the library saves loads in a strict XML reader.
    // On the document itself the call does nothing: the document has no attributes of its own,
    // and its root element is not changed through it.
    void setAttribute(const char* name, const char* value) const;
    // The attribute's text, "" when it is missing; never null. Read the result at once. On the
    // document, the root element's attribute.
    const char* getAttribute(const char* name) const;
    const char* nodeName() const;
    // An attribute node's value; an element's text.
    const char* getText() const;
    // All XML attributes in document order; never an empty pointer.
    std::shared_ptr<COXMLNamedNodeMap> attributes();
    // The first match of an XPath 1.0 expression, or null. As XPath 1.0 has it, a name test
    // without a prefix ("//Task") doesn't match an element in a namespace (below xmlns="urn:x");
    // this holds for the last step of a path.
    COXMLNode* selectSingleNode(const char* xpath) const;
    // All matches in document order, or an empty pointer when nothing matches.
    std::shared_ptr<COXMLNodeList> selectNodes(const char* xpath, bool flag);
    // All descendant elements of that name, in document order; always a list.
    std::shared_ptr<COXMLNodeList> getElementsByTagName(const char* name);

protected:
    friend struct COXMLDocumentData;
    friend class COXMLDocument;
    COXMLNode(COXMLDocumentData* owner, void* handle, bool is_attribute);

    COXMLDocumentData* owner_;
    void* handle_;       // the parser's node or attribute
    bool is_attribute_;
};

class VELLUMENT_API COXMLNodeList {
public:
    COXMLNodeList();
    virtual ~COXMLNodeList();
    int length();
    COXMLNode* item(int index);

protected:
    friend struct COXMLDocumentData;
    friend class COXMLNode;
    struct Items;
    std::unique_ptr<Items> items_;
};

class VELLUMENT_API COXMLNamedNodeMap : public COXMLNodeList {
public:
    COXMLNamedNodeMap();
    ~COXMLNamedNodeMap() override;
};

class VELLUMENT_API COXMLDocument : public COXMLNode {
public:
    ~COXMLDocument() override;

    // A new document without a root; append the root with appendChild on the document.
    static COXMLDocument* createDocument();
    // A document with the element tree of a toolkit XML tree; takes the handle over.
    static COXMLDocument* createNewDocument(CkXml* root);
    // Parses a file or text; null on any failure. Code and text go to the buffers when given
    // (the text bounded by errorTextSize and always terminated). Only well-formed XML 1.0 loads:
    // anything else fails with a COXMLParseError code and a text that says what and where.
    // Entities of a DTD are not expanded, so a reference to any but the five predefined ones is
    // refused. A file is UTF-8 (with or without a mark), UTF-16 or UTF-32 (by its mark or its
    // first bytes) or, when its declaration says windows-1252 or ISO-8859-1, in the code page;
    // text in memory is in the code page.
    static COXMLDocument* load(const char* path, int* errorCode, char* errorText, int errorTextSize);
    static COXMLDocument* loadXML(const char* text, int* errorCode, char* errorText, int errorTextSize);

    // Writes the document as UTF-8 with an XML declaration, replacing the file atomically.
    // Non-zero on success, 0 on failure (see getXMLError).
    int save(const char* path) const;
    void getXMLError(int* errorCode, char* errorText, int errorTextSize) const;
    void clearXMLError() const;

    // A new element attached to nothing yet; the document owns it.
    COXMLNode* createElement(const char* name);
    // The root element, or null for an empty document.
    COXMLNode* getDocumentElement();

private:
    explicit COXMLDocument(COXMLDocumentData* data);
    COXMLDocumentData* data_;
};

#endif
