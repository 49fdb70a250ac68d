#ifndef VELLUMENT_CTRANSACTION_H
#define VELLUMENT_CTRANSACTION_H

#include <string>

#include <vellument/VellumentTypes.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

class COXMLNode;
class COXMLDocument;
class CPackage;
class CStatus;
class CDictionary;

namespace oxml {
class TextWriter;
}

// One step of the trail: its action, what was prepared for it (package), what is known
// afterwards (status) and free notes (dictionary). The transaction owns all three; the getters
// lend them. There is no copy: build a new transaction from the copy constructors of the parts.
class VELLUMENT_API CTransaction {
public:
    // Action None, a new default package, status and dictionary.
    CTransaction();
    // As the default, but takes over status instead of making one (a null status gets a default).
    explicit CTransaction(CStatus* status);
    // Reads a Transaction element: Action, and its Dictionary, Package and Status children.
    // A missing child gives the default part; a null node gives a default transaction.
    explicit CTransaction(COXMLNode* node);
    virtual ~CTransaction();

    CTransaction(const CTransaction&) = delete;
    CTransaction& operator=(const CTransaction&) = delete;

    // The text of an action; a value outside the table gives "None".
    static std::string GetActionTypeToString(Vellument::ActionType action);

    Vellument::ActionType get_action() const;
    void set_action(Vellument::ActionType action) const;
    // Memory only, like the number.
    bool get_is_test() const;
    void set_is_test(bool is_test) const;
    // Position number for the database mirror.
    int get_number() const;
    void set_number(int number) const;

    CPackage* get_package() const;
    CStatus* get_status() const;
    CDictionary* get_dictionary() const;
    // Each setter deletes the part it holds and takes over the new one. Handing back the pointer
    // already held changes nothing.
    void set_package(CPackage* package) const;
    void set_status(CStatus* status) const;
    void set_dictionary(CDictionary* dictionary) const;

    // A "Transaction" element with Action, the Dictionary when it has entries, the Package and the
    // Status. The caller appends it. Null when the document is null.
    COXMLNode* create_xml_node(COXMLDocument* document) const;
    // Rows Action and Number.
    attributeDicList getAndFillMap() const;

private:
    // A save prints the record without a tree.
    friend class oxml::TextWriter;
    void write_text(oxml::TextWriter& out) const;
    template <class Writer>
    void write_attributes(Writer& writer) const;
    struct Record;
    Record* m_record;
};

#endif
