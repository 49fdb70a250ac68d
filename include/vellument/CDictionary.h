#ifndef VELLUMENT_CDICTIONARY_H
#define VELLUMENT_CDICTIONARY_H

#include <string>
#include <unordered_map>

#include <vellument/export.h>

class COXMLNode;
class COXMLDocument;

// Free-text notes, key to value: one per transaction and one for the whole document.
// The map interface is the one of std::unordered_map; keys are unique and a later assignment
// overwrites.
class VELLUMENT_API CDictionary : public std::unordered_map<std::string, std::string> {
public:
    CDictionary();
    // Every entry of the source; a null source gives an empty map.
    explicit CDictionary(const CDictionary* source);
    // One entry per XML attribute of the node (name to text); a null node gives an empty map.
    explicit CDictionary(COXMLNode* node);
    virtual ~CDictionary();

    CDictionary(const CDictionary&) = delete;
    CDictionary& operator=(const CDictionary&) = delete;

    // A "Dictionary" element with one attribute per entry, in key order; an empty map gives a
    // bare element. Entries whose key is no legal XML attribute name are left out, since they
    // would make the whole document unreadable. Null when the document is null.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
};

// Assigns every entry of source into target; entries of target with other keys stay.
// A null or empty source, or a null target, does nothing.
VELLUMENT_API void copy_dictionary(const CDictionary* source, CDictionary* target);

#endif
