#ifndef VELLUMENT_RECORDS_ATTRIBUTELISTS_H
#define VELLUMENT_RECORDS_ATTRIBUTELISTS_H

#include <vellument/attributeDic.h>
#include <vellument/export.h>

class CCopy;
class CFiling;
class CFilingBase;
class CForm;
class CFormBase;
class CPackage;
class CStatusBase;
class CTransaction;

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

// What the records' getAndFillMap operations give, filled into the shared table and lent rather
// than copied: for the mirror, which is done with one list before it fills the next. Only the
// record's own rows, as with the operations; a base list is asked separately.
const attributeDicList& fill_status_base(const CStatusBase& record);
const attributeDicList& fill_package(const CPackage& record);
const attributeDicList& fill_filing_base(const CFilingBase& record);
const attributeDicList& fill_filing(const CFiling& record);
const attributeDicList& fill_copy(const CCopy& record);
const attributeDicList& fill_form_base(const CFormBase& record);
const attributeDicList& fill_form(const CForm& record);
const attributeDicList& fill_transaction(const CTransaction& record);

} // namespace AttributeLists

#endif
