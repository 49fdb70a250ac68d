#ifndef VELLUMENT_CKXML_H
#define VELLUMENT_CKXML_H

// A small tree of XML elements with a forgiving parser, a path language and a fixed text form.
//
// A CkXml object is a cursor on one element of a tree; the tree lives while any cursor points
// into it. Text crosses this interface in the ANSI code page (Windows-1252) and is held as UTF-8.
// Text results point into one of ten buffers that the object uses in turn: a result stays valid
// for the next nine calls that return text, so copy it at once.
//
// Paths are segments separated by "|", starting at the cursor's element:
//   tag          first child with exactly this tag (prefix included)
//   *:tag        first child whose tag, or the part of it behind the ":", is tag
//   tag[n]       the n-th child with this tag, from 0; n may be I, J or K for the registers
//   tag[*]       creates a new child (only where a path creates elements)
//   [n], n       the n-th child of any tag
//   tag{text}    first child with this content
//   .. ++ --     parent, next sibling, previous sibling
//   /T/tag       first descendant with this tag, breadth first
//   /C/tag,text  first descendant with this tag and content
//   /A/tag,name,value  first descendant with this tag and attribute value
// An empty path is the cursor's element itself.

#include <vellument/export.h>

class VELLUMENT_API CkXml {
public:
    // A one-element tree whose root is tagged "unnamed".
    CkXml();
    // Lets go of the tree; the elements stay while other cursors point into it.
    ~CkXml();
    CkXml(const CkXml&) = delete;
    CkXml& operator=(const CkXml&) = delete;

    // Replaces the tree with the parse of the text. A text without "<", shorter than 100 bytes
    // and ending in ".xml" is a file path and goes to LoadXmlFile. False only for a null or empty
    // text or when memory runs out: badly formed text loads as far as it goes.
    bool LoadXml(const char* xml);
    // Reads a file (a path in Windows form), turns its bytes into UTF-8 by its byte order mark,
    // its zero bytes or its declared encoding, and parses it. False if the file can't be read.
    bool LoadXmlFile(const char* path);

    // The content of the element at the path with the five predefined entities resolved, or null
    // if the path leads nowhere. An element without content gives "".
    const char* GetChildContent(const char* path);

    // The tree from the cursor's element down, as text with CR LF line ends and four blanks of
    // indentation per level; null if the tree is bad.
    const char* GetXml();

    // Whether GetXml on the root writes the "<?xml ...?>" line first (default on). Cursors made
    // through this one copy the switch.
    bool get_EmitDeclaration();
    void put_EmitDeclaration(bool emit);
    // A flag of the tree: GetXml leaves out indentation and line ends (default off).
    bool get_EmitCompact();
    void put_EmitCompact(bool compact);

    // The element's tag, and its setter, which replaces the tag and nothing else.
    const char* tag();
    void put_Tag(const char* tag);
    int get_NumChildren();

    // Appends an attribute with the trimmed name; an existing one of the same name stays.
    bool AddAttribute(const char* name, const char* value);

    // A new cursor on a new last child; the caller deletes it. The tag is trimmed and its blanks
    // become "_"; "&", "<" and ">" in the content are escaped. A tag with "|" is a path whose
    // front part is followed and made where missing. Null if the path can't be made.
    CkXml* NewChild(const char* tag, const char* content);
    // A new cursor on a new child inserted after the child at index (negative counts as 0), or
    // appended when that is the last child or beyond.
    CkXml* NewChildAfter(int index, const char* tag, const char* content);
    // A new cursor on the same element.
    CkXml* GetSelf();

    // The array index registers of the path language.
    int get_I();
    void put_I(int value);
    int get_J();
    void put_J(int value);
    int get_K();
    void put_K(int value);

    // A readable trail of the last call that does work: what it was given, what failed.
    const char* lastErrorText();

private:
    friend struct CkXmlAccess;
    struct Impl;
    explicit CkXml(Impl* impl);
    Impl* m_impl;
};

#endif
