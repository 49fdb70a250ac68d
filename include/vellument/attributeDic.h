#ifndef VELLUMENT_ATTRIBUTEDIC_H
#define VELLUMENT_ATTRIBUTEDIC_H

#include <string>
#include <vector>

// One row of an attribute list: the name (also the database column), the value as text and the
// type word ("INT", "STRING", "BOOLEAN", "DATE" or "DATETIME").
struct attributeDic {
    std::string attributeName;
    std::string attributeValue;
    std::string attributeType;
};

// The rows of one record, in the record's fixed order.
typedef std::vector<attributeDic> attributeDicList;

#endif
