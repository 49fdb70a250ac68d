#ifndef VELLUMENT_RECORDS_ATTRIBUTELISTS_H
#define VELLUMENT_RECORDS_ATTRIBUTELISTS_H

#include <vellument/attributeDic.h>
#include <vellument/export.h>

// The process-wide attribute lists. Each is built once with its names and type words and empty
// values; a record overwrites the values of its list in place and hands out a copy. The tables are
// unguarded, so one list must not be filled on two threads at once.
namespace AttributeLists {

enum ListId {
    STATUS_BASE,
    PACKAGE,
    FILING_BASE,
    FILING,
    COPY,
    FORM_BASE,
    FORM,
    TRANSACTION,
    VELLUMENT,
    KEY_VALUE,
    IDENTITY
};

// The shared table of one list. An id outside the enumeration raises std::invalid_argument.
VELLUMENT_API attributeDicList& table(ListId id);

} // namespace AttributeLists

#endif
