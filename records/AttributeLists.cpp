#include "records/AttributeLists.h"

#include <initializer_list>
#include <stdexcept>
#include <utility>

namespace AttributeLists {

namespace {

attributeDicList make(std::initializer_list<std::pair<const char*, const char*>> rows)
{
    attributeDicList list;
    list.reserve(rows.size());
    for (const auto& row : rows)
        list.push_back(attributeDic{row.first, std::string(), row.second});
    return list;
}

attributeDicList& list_of(ListId id)
{
    // Row order and type words are those the database mirror uses as its columns; the odd ones
    // (AdditionalMode as STRING, the swapped words of the form rows) are kept as the columns stand.
    static attributeDicList status_base = make({
        {"KXNPath", "STRING"},
        {"FilingChoice", "STRING"},
        {"EmployeeCount", "INT"},
        {"StateEmployeeCount", "INT"},
        {"LocalEmployeeCount", "INT"},
        {"CorrectedCount", "INT"},
    });
    static attributeDicList package = make({
        {"BuilderVersion", "STRING"},
        {"InvoiceAmount", "STRING"},
        {"AddedCount", "INT"},
        {"DeletedCount", "INT"},
        {"CorrectedEW2EmployeeCount", "INT"},
        {"AddedEW2EmployeeCount", "INT"},
        {"DeletedEW2EmployeeCount", "INT"},
        {"AdditionalMode", "STRING"},
        {"WebServiceFail", "BOOLEAN"},
        {"PackageDate", "DATETIME"},
    });
    static attributeDicList filing_base = make({
        {"Date", "DATETIME"},
        {"Type", "STRING"},
        {"Identifier", "STRING"},
        {"VLID", "INT"},
        {"Printed", "BOOLEAN"},
        {"Mailed", "BOOLEAN"},
        {"Efiled", "BOOLEAN"},
        {"Corrected", "BOOLEAN"},
        {"Replacement", "BOOLEAN"},
        {"KRFPath", "STRING"},
    });
    static attributeDicList filing = make({
        {"EfiledSuccessful", "BOOLEAN"},
        {"PrintedSuccessful", "BOOLEAN"},
        {"RecordsSuccessful", "BOOLEAN"},
        {"EmployeeCount", "INT"},
        {"CorrectedCount", "INT"},
    });
    static attributeDicList copy = make({
        {"Replaceable", "BOOLEAN"},
        {"Deleted", "BOOLEAN"},
    });
    static attributeDicList form_base = make({
        {"Type", "STRING"},
        {"Flags", "STRING"},
        {"Completion", "STRING"},
        {"Description", "STRING"},
        {"Location", "STRING"},
        {"EXMLLocation", "STRING"},
        {"Form_Name", "STRING"},
        {"KRF_DB_Path", "STRING"},
        {"KRFVersion", "STRING"},
        {"KRFFilter_Number", "STRING"},
        {"KRFFilter_Number2", "STRING"},
        {"Divider_Form", "STRING"},
    });
    static attributeDicList form = make({
        {"ViewerResultCode", "BOOLEAN"},
        {"ResultPrinted", "STRING"},
    });
    static attributeDicList transaction = make({
        {"Action", "STRING"},
        {"Number", "INT"},
    });
    static attributeDicList vellument = make({
        {"Version", "INT"},
        {"PeriodStart", "DATE"},
        {"PeriodEnd", "DATE"},
        {"RegMode", "STRING"},
        {"FormType", "STRING"},
        {"VendorCode", "STRING"},
        {"FilingYear", "INT"},
        {"ModifiedDate", "DATETIME"},
        {"FilingEIN", "STRING"},
    });
    static attributeDicList key_value = make({
        {"Key", "STRING"},
        {"Value", "STRING"},
    });
    static attributeDicList identity = make({
        {"FormType", "STRING"},
        {"FilingYear", "INT"},
        {"Extension", "STRING"},
    });

    switch (id) {
    case STATUS_BASE: return status_base;
    case PACKAGE: return package;
    case FILING_BASE: return filing_base;
    case FILING: return filing;
    case COPY: return copy;
    case FORM_BASE: return form_base;
    case FORM: return form;
    case TRANSACTION: return transaction;
    case VELLUMENT: return vellument;
    case KEY_VALUE: return key_value;
    case IDENTITY: return identity;
    }
    throw std::invalid_argument("unknown attribute list");
}

} // namespace

attributeDicList& table(ListId id)
{
    // Looked up once: a list is asked for once per row of a mirror write, and one guard costs
    // less than one per list.
    static attributeDicList* const lists[] = {
        &list_of(STATUS_BASE), &list_of(PACKAGE), &list_of(FILING_BASE), &list_of(FILING),
        &list_of(COPY),        &list_of(FORM_BASE), &list_of(FORM),      &list_of(TRANSACTION),
        &list_of(VELLUMENT),   &list_of(KEY_VALUE), &list_of(IDENTITY),
    };
    if (id < STATUS_BASE || id > IDENTITY)
        throw std::invalid_argument("unknown attribute list");
    return *lists[id];
}

} // namespace AttributeLists
