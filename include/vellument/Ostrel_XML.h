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

// One element of a tree, or one XML attribute when it comes out of a COXMLNamedNodeMap.
// Nodes are lent: they all die with their document.
class VELLUMENT_API COXMLNode {
public:
    virtual ~COXMLNode();
    COXMLNode(const COXMLNode&) = delete;
    COXMLNode& operator=(const COXMLNode&) = delete;

    // Appends a child made by createElement of the same document; returns the child.
    COXMLNode* appendChild(COXMLNode* child, bool flag) const;
    // Sets or overwrites an attribute; an empty value is allowed.
    void setAttribute(const char* name, const char* value) const;
    // The attribute's text, "" when it is missing; never null. Read the result at once.
    const char* getAttribute(const char* name) const;
    const char* nodeName() const;
    // An attribute node's value; an element's text.
    const char* getText() const;
    // All XML attributes in document order; never an empty pointer.
    std::shared_ptr<COXMLNamedNodeMap> attributes();
    // The first match of an XPath 1.0 expression, or null.
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
    // (the text bounded by errorTextSize and always terminated).
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
