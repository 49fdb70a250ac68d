#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "records/AttributeLists.h"

using namespace AttributeLists;

namespace {

typedef std::vector<std::pair<std::string, std::string>> Columns;

Columns columns_of(const attributeDicList& list)
{
    Columns columns;
    for (const attributeDic& row : list)
        columns.emplace_back(row.attributeName, row.attributeType);
    return columns;
}

} // namespace

TEST(AttributeLists, NamesAndTypeWordsInRowOrder)
{
    const std::string S = "STRING", I = "INT", B = "BOOLEAN", D = "DATE", T = "DATETIME";
    const std::vector<std::pair<ListId, Columns>> expected = {
        {STATUS_BASE, {{"KXNPath", S}, {"FilingChoice", S}, {"EmployeeCount", I}, {"StateEmployeeCount", I},
                       {"LocalEmployeeCount", I}, {"CorrectedCount", I}}},
        {PACKAGE, {{"BuilderVersion", S}, {"InvoiceAmount", S}, {"AddedCount", I}, {"DeletedCount", I},
                   {"CorrectedEW2EmployeeCount", I}, {"AddedEW2EmployeeCount", I}, {"DeletedEW2EmployeeCount", I},
                   {"AdditionalMode", S}, {"WebServiceFail", B}, {"PackageDate", T}}},
        {FILING_BASE, {{"Date", T}, {"Type", S}, {"Identifier", S}, {"VLID", I}, {"Printed", B}, {"Mailed", B},
                       {"Efiled", B}, {"Corrected", B}, {"Replacement", B}, {"KRFPath", S}}},
        {FILING, {{"EfiledSuccessful", B}, {"PrintedSuccessful", B}, {"RecordsSuccessful", B},
                  {"EmployeeCount", I}, {"CorrectedCount", I}}},
        {COPY, {{"Replaceable", B}, {"Deleted", B}}},
        {FORM_BASE, {{"Type", S}, {"Flags", S}, {"Completion", S}, {"Description", S}, {"Location", S},
                     {"EXMLLocation", S}, {"Form_Name", S}, {"KRF_DB_Path", S}, {"KRFVersion", S},
                     {"KRFFilter_Number", S}, {"KRFFilter_Number2", S}, {"Divider_Form", S}}},
        {FORM, {{"ViewerResultCode", B}, {"ResultPrinted", S}}},
        {TRANSACTION, {{"Action", S}, {"Number", I}}},
        {VELLUMENT, {{"Version", I}, {"PeriodStart", D}, {"PeriodEnd", D}, {"RegMode", S}, {"FormType", S},
                     {"VendorCode", S}, {"FilingYear", I}, {"ModifiedDate", T}, {"FilingEIN", S}}},
        {KEY_VALUE, {{"Key", S}, {"Value", S}}},
        {IDENTITY, {{"FormType", S}, {"FilingYear", I}, {"Extension", S}}},
    };
    for (const auto& list : expected) {
        SCOPED_TRACE(list.first);
        EXPECT_EQ(columns_of(table(list.first)), list.second);
    }
}

TEST(AttributeLists, StartEmptyAndStayOneTablePerList)
{
    // Checked before anything fills them; this executable runs nothing else that does.
    for (int id = STATUS_BASE; id <= IDENTITY; ++id)
        for (const attributeDic& row : table(static_cast<ListId>(id)))
            EXPECT_EQ(row.attributeValue, "") << row.attributeName;
    EXPECT_EQ(&table(COPY), &table(COPY));
    EXPECT_NE(&table(COPY), &table(FORM));
    EXPECT_THROW(table(static_cast<ListId>(IDENTITY + 1)), std::invalid_argument);
}
