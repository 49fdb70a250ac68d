#include "Vellument/Vellument_impl.h"

#include <iterator>
#include <memory>
#include <stdexcept>

#include <vellument/AuditUtil.h>
#include <vellument/CDictionary.h>
#include <vellument/CPackage.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CvellumentDB.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_ReadingCost.h"

namespace {

// How the records read a vellument: the trail collects its transactions at any depth, and so do
// packages their filings, filings their forms, statuses their copies and copies their histories;
// dictionaries, packages and statuses are the first child of their name.
const XmlReadingStep kVellumentSteps[] = {
    {nullptr, "Dictionary", false},      {nullptr, "Transaction", true},   {"Transaction", "Dictionary", false},
    {"Transaction", "Package", false},   {"Transaction", "Status", false}, {"Package", "Filing", true},
    {"Filing", "Form", true},            {"Status", "Copy", true},         {"Copy", "History", true},
};
// A status read on its own, as the server's view laid beside the document.
const XmlReadingStep kStatusSteps[] = {{nullptr, "Copy", true}, {"Copy", "History", true}};

// Reading a file that the library wrote costs a few steps a node; records nested in their own
// kind cost more, and only a hostile nesting costs more than this.
const std::uint64_t kReadingStepsPerNode = 16;
const std::uint64_t kReadingStepsAllowed = 4096;

bool readable_at_bounded_cost(const COXMLDocument* document, const XmlReadingStep* steps, int count,
                              const std::string& path)
{
    const XmlReadingCost cost = xml_reading_cost(document, steps, count);
    const std::uint64_t bound = cost.nodes * kReadingStepsPerNode + kReadingStepsAllowed;
    if (cost.work <= bound)
        return true;
    VLOG(1,
         "[Vellument] Reading the records of %s would take more than %llu steps for its %llu nodes, "
         "the file is not read\n",
         path.c_str(), static_cast<unsigned long long>(bound), static_cast<unsigned long long>(cost.nodes));
    return false;
}

} // namespace

bool vellument_impl::vellument_readable(const COXMLDocument* document, const std::string& path)
{
    return readable_at_bounded_cost(document, kVellumentSteps, static_cast<int>(std::size(kVellumentSteps)), path);
}

bool vellument_impl::status_readable(const COXMLDocument* document, const std::string& path)
{
    return readable_at_bounded_cost(document, kStatusSteps, static_cast<int>(std::size(kStatusSteps)), path);
}

vellument_impl::vellument_impl()
    : modified_date(CDateTime::now())
    , dictionary(new CDictionary())
    , database(new CvellumentDB())
{
    build_list_map_from_db("LocalList", local_list_map);
}

vellument_impl::~vellument_impl()
{
    for (CTransaction* transaction : transactions)
        delete transaction;
    transactions.clear();
    delete dictionary;
    delete_list_map(&local_list_map);
    delete database;
}

void vellument_impl::form_name_and_company_dir(const char* name)
{
    std::string text = (name != nullptr && *name != '\0') ? std::string(name) : std::string("Vellument.XML");
    vellument_name = Ostrel::Format::ToUpperAscii(text);

    // The search runs on upper-cased text, so in practice the cut is the last backslash; the
    // company directory then loses a trailing HISTORIES or DRAFTS folder.
    const int cut = CPathHandling::find_company_dir_end(vellument_name.c_str());
    const std::string prefix = cut >= 0 ? vellument_name.substr(0, static_cast<std::size_t>(cut) + 1) : std::string();
    CPathHandling::set_company_dir(prefix.c_str());
}

CTransaction* vellument_impl::create_new_transaction()
{
    std::unique_ptr<CTransaction> transaction(new CTransaction());
    transactions.push_back(transaction.get());
    return transaction.release();
}

CTransaction* vellument_impl::current_transaction() const
{
    if (transactions.empty()) {
        VLOG(3, "[Vellument] Transaction array is empty.");
        return nullptr;
    }
    return transactions.back();
}

void vellument_impl::read_document(COXMLDocument* document)
{
    last_bug_fix_transaction = nullptr;
    root_node = document != nullptr ? document->getDocumentElement() : nullptr;
    if (root_node == nullptr)
        return;

    version = AuditUtil::to_int(root_node->getAttribute("Version"));
    if (version < 200)
        version = 200;

    filing_period_start = root_node->getAttribute("PeriodStart");
    filing_period_end = root_node->getAttribute("PeriodEnd");
    registration_mode = root_node->getAttribute("RegMode");
    filing_year = root_node->getAttribute("FilingYear");
    filing_ein = root_node->getAttribute("FilingEIN");
    vendor_code = root_node->getAttribute("VendorCode");
    form_type_string = root_node->getAttribute("FormType");

    const char* modified = root_node->getAttribute("ModifiedDate");
    if (modified != nullptr && *modified != '\0')
        modified_date.parse(modified);

    if (COXMLNode* node = root_node->selectSingleNode("./Dictionary")) {
        std::shared_ptr<COXMLNamedNodeMap> attributes = node->attributes();
        const int count = attributes ? attributes->length() : 0;
        for (int i = 0; i < count; ++i) {
            COXMLNode* attribute = attributes->item(i);
            if (attribute != nullptr)
                (*dictionary)[attribute->nodeName()] = attribute->getText();
        }
    }

    std::shared_ptr<COXMLNodeList> nodes = root_node->getElementsByTagName("Transaction");
    const int count = nodes ? nodes->length() : 0;
    transactions.reserve(transactions.size() + static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        std::unique_ptr<CTransaction> transaction(new CTransaction(nodes->item(i)));
        transactions.push_back(transaction.get());
        CTransaction* added = transaction.release();
        if (added->get_action() == Vellument::ACTION_BUG_FIX)
            last_bug_fix_transaction = added;
    }
}

void vellument_impl::open(const char* name, const char* ein, const char* year, const char* vendor, bool is_test,
                          bool open_read_only)
{
    form_name_and_company_dir(name);
    VLOG(3, "[Vellument] loading vellument %s\n", name != nullptr ? name : "");

    bool hash_changed = false;
    if (!open_read_only)
        hash_changed = validate_vellument(vellument_name, year, ein);

    read_only = open_read_only;

    // The records only read the document: it is held in the compact form where the text allows.
    std::unique_ptr<COXMLDocument> document(oxml::load_for_reading(vellument_name.c_str(), nullptr, nullptr, 0));
    // Records gather their children at any depth, so a record nested in its own kind is read again
    // by every record around it: a hostile nesting is refused before it costs time and memory.
    if (document && !vellument_readable(document.get(), vellument_name))
        document.reset();
    if (document) {
        read_document(document.get());
        // The records hold all they need: the text and its tree go before the trail's work.
        document.reset();
        root_node = nullptr;
        if (current_transaction() == nullptr) {
            VLOG(3, "[Vellument] No current transaction throwing error\n");
            throw 0;
        }
    } else {
        // A missing file and an unreadable one are alike: a fresh trail, which the next save writes.
        VLOG(3, "[Vellument] No transactions creating one \n");
        create_new_transaction();
    }

    // What the file holds wins over the caller's arguments.
    if (filing_year.empty() && year != nullptr)
        filing_year = year;
    if (filing_ein.empty() && ein != nullptr)
        filing_ein = ein;
    if (vendor_code.empty() && vendor != nullptr)
        vendor_code = vendor;

    CTransaction* current = current_transaction();
    if (current == nullptr) {
        VLOG(3, "[Vellument] No current transaction 2 throwing error\n");
        throw 0;
    }

    create_user_edit_or_download_transaction(open_read_only, hash_changed);

    if (!open_read_only && (transaction_corrected || downloaded_vellument || (hash_value_exists && hash_changed)))
        save_after_open();

    current = transactions.back();
    has_status = current->get_status()->get_copy_count() > 0;
    work_in_progress = current->get_package()->get_filing_count() > 0 || !current->get_dictionary()->empty();
    current->set_is_test(is_test);
}

std::string vellument_impl::create_form_type_text() const
{
    if (!form_type_string.empty())
        return form_type_string;

    VLOG(3, "[VellumentImpl] In create form type text\n");
    const std::string& name = vellument_name;
    const std::string::size_type last = name.rfind('_');
    if (last == std::string::npos)
        throw std::invalid_argument("create_form_type_text: the vellument name has no underscore");

    // The walk runs to the start of the whole path, so for a name with a qualifier the code is
    // still the stretch between the first two underscores that remain.
    std::size_t start = last + 1;
    std::size_t end = last + 1;
    for (std::size_t i = last; i-- > 1;) {
        if (name[i] == '_') {
            end = start;
            start = i;
        }
    }
    std::string code;
    if (end > start + 1) {
        for (std::size_t i = start + 1; i < end; ++i) {
            if (name[i] != '_')
                code += name[i];
        }
    }
    const std::string text = convert_form_code_to_form_type_string(code.c_str());
    VLOG(3, "[VellumentImpl] Form type text is %s\n", text.c_str());
    return text;
}

std::string vellument_impl::year_from_name(const std::string& name)
{
    return name.substr(name.size() > 8 ? name.size() - 8 : 0, 4);
}

CDictionary* vellument_impl::get_previous_dictionary() const
{
    if (transactions.size() < 2)
        return nullptr;
    for (std::size_t i = transactions.size() - 1; i-- > 0;) {
        CTransaction* transaction = transactions[i];
        if (transaction != nullptr && !transaction->get_dictionary()->empty())
            return transaction->get_dictionary();
    }
    return nullptr;
}
