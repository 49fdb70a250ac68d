#ifndef VELLUMENT_OSTREL_XML_NESTING_H
#define VELLUMENT_OSTREL_XML_NESTING_H

class COXMLDocument;

// The first of names of which an element lies inside another element of the same name, or null.
// The record readers collect children at any depth, so such nesting would make every record read
// everything below it again: a hostile document could cost time and memory with the square of
// its size.
const char* xml_find_self_nested_element(const COXMLDocument* document, const char* const* names, int count);

#endif
