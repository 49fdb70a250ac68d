#ifndef VELLUMENT_OSTREL_XML_READING_COST_H
#define VELLUMENT_OSTREL_XML_READING_COST_H

#include <cstdint>

class COXMLDocument;

// One step of a reader of records: reading an element named parent (null: the document element,
// whatever its name) reads the elements named child among its children (any_depth false: the
// first of them only, as a selectSingleNode("./child") finds it) or among all its descendants
// (true: as getElementsByTagName finds them, by a walk of the whole subtree).
struct XmlReadingStep {
    const char* parent;
    const char* child;
    bool any_depth;
};

struct XmlReadingCost {
    // Nodes of the document, attributes included: the measure of its size.
    std::uint64_t nodes = 0;
    // What reading it by the steps costs: every element read counts once with its attributes,
    // every node that a walk or a scan of children passes counts once. An element found by
    // several readers (a Filing inside a Filing is collected by every Package and Filing around
    // it) counts each time, with all that its own reading costs. Saturates instead of wrapping.
    std::uint64_t work = 0;
};

// The cost of reading the document by the steps, worked out without reading it: one walk, no
// recursion, time linear in the size of the document and memory linear in its depth. A hostile
// nesting can make the work itself grow with the square of the size or worse; this tells before
// the work is done.
XmlReadingCost xml_reading_cost(const COXMLDocument* document, const XmlReadingStep* steps, int count);

#endif
