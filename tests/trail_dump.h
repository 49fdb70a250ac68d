#ifndef VELLUMENT_TESTS_TRAIL_DUMP_H
#define VELLUMENT_TESTS_TRAIL_DUMP_H

// Everything a read-only open leaves in a vellument object, as one text, for comparing two ways
// of reading the same file: the trail's fields and dictionary, and every record's lists and the
// fields that no list holds. Shared by the test and the fuzz target of the compact reader.

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <vellument/CCopy.h>
#include <vellument/CDictionary.h>
#include <vellument/CFiling.h>
#include <vellument/CForm.h>
#include <vellument/CHistory.h>
#include <vellument/CPackage.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>

namespace trail_dump {

inline void add(std::string& out, const attributeDicList& list)
{
    for (const attributeDic& row : list)
        out += row.attributeName + "=" + row.attributeValue + ";";
    out += "\n";
}

inline void add(std::string& out, const CDictionary* dictionary)
{
    std::vector<std::pair<std::string, std::string>> entries(dictionary->begin(), dictionary->end());
    std::sort(entries.begin(), entries.end());
    out += "dictionary";
    for (const auto& entry : entries)
        out += " " + entry.first + "=" + entry.second;
    out += "\n";
}

inline std::string of(const CVellument& v)
{
    std::string out;
    add(out, v.getAndFillMap());
    add(out, v.get_dictionary());
    for (int t = 0; t < v.get_transaction_count(); ++t) {
        const CTransaction* transaction = v.get_transaction(t);
        out += "transaction\n";
        add(out, transaction->getAndFillMap());
        add(out, transaction->get_dictionary());
        const CPackage* package = transaction->get_package();
        add(out, package->getAndFillMapBase());
        add(out, package->getAndFillMap());
        out += "ew2 " + std::to_string(package->get_ew2_employee_count()) + "\n";
        for (int f = 0; f < package->get_filing_count(); ++f) {
            const CFiling* filing = package->get_filing_at(f);
            add(out, filing->getAndFillMapBase());
            add(out, filing->getAndFillMap());
            out += "name " + filing->get_filing_name() + "\n";
            for (int i = 0; i < filing->get_form_count(); ++i) {
                const CForm* form = filing->get_form_at(i);
                add(out, form->getAndFillMapBase());
                add(out, form->getAndFillMap());
            }
        }
        const CStatus* status = transaction->get_status();
        add(out, status->getAndFillMapBase());
        out += "ew2 " + std::to_string(status->get_ew2_employee_count()) + "\n";
        for (int c = 0; c < status->get_copy_count(); ++c) {
            const CCopy* copy = status->get_copy_at(c);
            add(out, copy->getAndFillMapBase());
            add(out, copy->getAndFillMap());
            for (int h = 0; h < copy->get_history_count(); ++h)
                add(out, copy->get_history_at(h)->getAndFillMapBase());
        }
    }
    return out;
}

// The same document with a DOCTYPE, after its declaration if it has one: a file that the compact
// reader leaves to the parser, which reads it as the same tree.
inline std::string with_doctype(const std::string& text)
{
    std::string::size_type at = 0;
    if (text.compare(0, 5, "<?xml") == 0) {
        at = text.find("?>");
        at = at == std::string::npos ? 0 : at + 2;
    }
    return text.substr(0, at) + "<!DOCTYPE AuditTrail>" + text.substr(at);
}

} // namespace trail_dump

#endif
