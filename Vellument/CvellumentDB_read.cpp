#include <vellument/CvellumentDB.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <vellument/CVellument.h>
#include <vellument/CkXml.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/Database_Access.h"
#include "Ostrel/Database_ChildRows.h"
#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_Build.h"
#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_Data.h"
#include "Ostrel/XML_WellFormed.h"
#include "Vellument/CvellumentDB_impl.h"
#include "Vellument/Vellument_impl.h"

using namespace vellument_db;

namespace {

// A read runs in one transaction, so that the file is locked once rather than per statement, and
// so that the database layer may answer the queries of child rows from one scan of each table.
// Ends only what it began.
class ReadTransaction {
public:
    explicit ReadTransaction(Ostrel::DatabaseEx* database)
        : m_database(database), m_begun(database->BeginTransaction(false))
    {
    }
    ~ReadTransaction()
    {
        if (m_begun)
            m_database->CommitTransaction();
    }
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;

    bool begun() const { return m_begun; }

private:
    Ostrel::DatabaseEx* m_database;
    bool m_begun;
};

bool plain_name(const char* name)
{
    const unsigned char first = static_cast<unsigned char>(*name);
    if (first == 0 || first >= 0x80 || !oxml::is_name_start_char(first))
        return false;
    for (const char* p = name + 1; *p != '\0'; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c >= 0x80 || !oxml::is_name_char(c))
            return false;
    }
    return true;
}

// The size of a text closed by a NUL; plain is cleared when the text holds a character that XML
// can't take as it is. One pass for both: every cell of a read goes through here.
std::size_t measure_value(const char* value, bool& plain)
{
    const char* p = value;
    if (plain) {
        for (;; ++p) {
            const unsigned char c = static_cast<unsigned char>(*p);
            if (c >= 0x20 && c < 0x80)
                continue;
            if (c == 0)
                return static_cast<std::size_t>(p - value);
            if (c >= 0x80 || !oxml::is_xml_char(c)) {
                plain = false;
                break;
            }
        }
    }
    return static_cast<std::size_t>(p - value) + std::strlen(p);
}

// As measure_value, for a text whose size up to its closing NUL is known: printable ASCII is
// passed over a word at a time. A NUL inside, or any byte that isn't plain, ends the fast pass.
std::size_t measure_sized(const char* value, std::size_t size, bool& plain)
{
    std::size_t i = 0;
    if (plain) {
        const std::uint64_t high = 0x8080808080808080ULL;
        for (; i + 8 <= size; i += 8) {
            std::uint64_t word;
            std::memcpy(&word, value + i, sizeof word);
            // A byte from 0x20 to 0x7f keeps its high bit clear and gets it from adding 0x60;
            // with no high bit set in the word the additions carry nothing into the next byte.
            if (((word | ~(word + 0x6060606060606060ULL)) & high) != 0)
                break;
        }
    }
    return i + measure_value(value + i, plain);
}

} // namespace

// The document as the rows give it, before it becomes one: its elements in an array, linked in
// the order of the finished tree, and their attributes' texts in one buffer, each closed by a NUL.
// A read makes many small elements; this keeps them to a few allocations in all.
//
// Most rows hold ASCII names and texts that XML takes as they are ("plain"); such a tree goes
// straight into the document. Any other text takes the toolkit tree's road, which decides how a
// name or text that XML can't hold is repaired, so that both roads give the same document.
struct CvellumentDB::ReadTree {
    struct Element {
        const char* tag;
        int first_child;
        int last_child;
        int next;  // sibling
        int children;
        std::size_t first_attribute;
        std::size_t attributes;
    };
    struct Attribute {
        std::uint32_t name;  // in names
        std::uint32_t size;  // of the value, less its NUL
        const char* value;   // in texts
    };
    // The names of a record set's columns, by the place in the reader that copies them: within
    // the read's transaction a statement's columns stay the same from row to row.
    struct Columns {
        int count = -1;
        std::vector<std::uint32_t> ids;
        std::vector<std::pair<std::string, int>> places;  // of columns asked for by name
    };
    enum Site {
        SITE_TRAIL,
        SITE_PACKAGE,
        SITE_STATUS,
        SITE_STATUS_BASE,
        SITE_FILING,
        SITE_COPY,
        SITE_FILING_BASE,
        SITE_FORM,
        SITE_HISTORY,
        SITE_FORM_BASE,
        SITE_TRANSACTION,
        SITE_COUNT
    };

    std::vector<Element> elements;
    std::vector<Attribute> attributes;
    std::vector<std::string> names;
    std::unordered_map<std::string, std::uint32_t> name_ids;
    // The attributes' texts in blocks that never move: a buffer grown by doubling would copy
    // every text again at each step.
    class Texts {
    public:
        const char* add(const char* value, std::size_t size)
        {
            if (size + 1 > m_left) {
                const std::size_t block = std::max(size + 1, kBlock);
                m_blocks.emplace_back(new char[block]);
                m_next = m_blocks.back().get();
                m_left = block;
            }
            char* const start = m_next;
            std::memcpy(start, value, size);
            start[size] = '\0';
            m_next += size + 1;
            m_left -= size + 1;
            return start;
        }

    private:
        static constexpr std::size_t kBlock = 256 * 1024;
        std::vector<std::unique_ptr<char[]>> m_blocks;
        char* m_next = nullptr;
        std::size_t m_left = 0;
    };
    Texts texts;
    // Texts of grouped rows are pointed at where the database layer holds them rather than
    // copied: these keep those rows alive for as long as the tree.
    std::vector<std::shared_ptr<const void>> owners;
    const void* last_owner = nullptr;
    std::vector<std::pair<const char*, std::size_t>> row_cells;  // of the row being copied
    bool plain = true;
    bool stable_columns = false;  // set while the read's own transaction is open
    Columns sites[SITE_COUNT];
    // The templates of child statements met so far, with their parts (see open_with_key).
    struct ChildStatement {
        std::string sql;
        Ostrel::detail::ChildQuery query;
        bool parsed = false;
    };
    std::deque<ChildStatement> statements;
    // Record sets of each level, kept for the whole read: a set opened again on the grouping it
    // had keeps its column names rather than copying them.
    Ostrel::RecordSet package_rows, unit_rows, unit_base_rows, form_rows, form_base_rows;

    explicit ReadTree(const char* root_tag) { elements.push_back(Element{root_tag, -1, -1, -1, 0, 0, 0}); }

    // A new child where the toolkit's NewChildAfter puts it: after the child at index, or last.
    int add_child_after(int parent, int index, const char* tag)
    {
        const int child = static_cast<int>(elements.size());
        elements.push_back(Element{tag, -1, -1, -1, 0, 0, 0});
        Element& p = at(parent);
        const long long place = static_cast<long long>(index < 0 ? 0 : index) + 1;
        if (place >= p.children) {
            if (p.last_child < 0)
                p.first_child = child;
            else
                at(p.last_child).next = child;
            p.last_child = child;
        } else {
            int before = p.first_child;
            for (long long k = 1; k < place; ++k)
                before = at(before).next;
            at(child).next = at(before).next;
            at(before).next = child;
        }
        ++p.children;
        return child;
    }
    int append_child(int parent, const char* tag) { return add_child_after(parent, INT_MAX - 1, tag); }

    // After the first of `transactions`: room for them all, as the trail's transactions are mostly
    // alike, so that the arrays aren't copied again and again as they grow.
    void expect(int transactions)
    {
        // A guess, not a promise: beyond this much the arrays grow as before.
        const std::size_t bytes = std::size_t(64) << 20;
        const std::size_t factor = static_cast<std::size_t>(std::max(transactions, 1));
        elements.reserve(std::min(elements.size() * factor, bytes / sizeof(Element)));
        attributes.reserve(std::min(attributes.size() * factor, bytes / sizeof(Attribute)));
    }

    std::uint32_t name_id(const std::string& name)
    {
        const auto found = name_ids.find(name);
        if (found != name_ids.end())
            return found->second;
        const std::uint32_t id = static_cast<std::uint32_t>(names.size());
        names.push_back(name);
        name_ids.emplace(name, id);
        plain = plain && plain_name(name.c_str());
        return id;
    }

    // An element's attributes are added one after the other, before any other element's. A
    // lasting value is kept where it stands; any other is copied.
    void add_attribute(int element, std::uint32_t name, const char* value, bool lasting = false,
                       std::size_t known_size = 0)
    {
        Element& e = at(element);
        if (e.attributes == 0)
            e.first_attribute = attributes.size();
        ++e.attributes;
        const std::size_t size = lasting ? measure_sized(value, known_size, plain) : measure_value(value, plain);
        if (size > UINT32_MAX)
            plain = false;  // the size can't hold it: the toolkit's road goes by the NUL
        const char* kept = lasting ? value : texts.add(value, size);
        attributes.push_back(Attribute{name, static_cast<std::uint32_t>(size), kept});
    }

    // The grouped rows that lasting texts live in are kept for as long as the tree.
    void keep_owner(const Ostrel::RecordSet& rows, const void* owner)
    {
        if (owner == last_owner)
            return;
        bool known = false;
        for (const std::shared_ptr<const void>& held : owners)
            known = known || held.get() == owner;
        if (!known)
            owners.push_back(Ostrel::detail::DatabaseAccess::owner_of(rows));
        last_owner = owner;
    }

    // The columns of the present row, from the second, as attributes of the element; the last
    // `skipped` columns (tableVer and the links) are left out.
    void copy_attributes(int element, const Ostrel::RecordSet& rows, int skipped, Site site)
    {
        const Columns& columns = columns_of(rows, site);
        const int count = columns.count;
        const int end = count - skipped;
        if (end <= 1)
            return;
        const void* owner = nullptr;
        row_cells.resize(static_cast<std::size_t>(end));
        if (Ostrel::detail::DatabaseAccess::lasting_row(rows, 1, end, row_cells.data(), owner)) {
            keep_owner(rows, owner);
            for (int i = 1; i < end; ++i) {
                const std::pair<const char*, std::size_t>& cell = row_cells[static_cast<std::size_t>(i - 1)];
                add_attribute(element, columns.ids[static_cast<std::size_t>(i)], cell.first, true, cell.second);
            }
            return;
        }
        for (int i = 1; i < end; ++i)
            add_attribute(element, columns.ids[static_cast<std::size_t>(i)], rows.GetColumnString(i));
    }

    // A column of the present row by name, as a number: what GetFieldValue(name) gives, with the
    // column's place looked up once per site while the columns are stable.
    int number(const Ostrel::RecordSet& rows, Site site, const std::string& name)
    {
        if (!stable_columns)
            return as_number(rows.GetFieldValue(name));
        Columns& columns = columns_of(rows, site);
        for (const std::pair<std::string, int>& place : columns.places)
            if (place.first == name)
                return place.second < 0 ? 0 : std::atoi(rows.GetColumnString(place.second));
        columns.places.emplace_back(name, place_of(rows, name));
        return number(rows, site, name);
    }

    // rows.Open of a child statement's template with its key: from the table's grouping, without
    // the text being made and read again, when the table is grouped already.
    bool open_with_key(Ostrel::RecordSet& rows, Ostrel::DatabaseEx* database, const std::string& sql, int key,
                       std::string& text)
    {
        ChildStatement* known = nullptr;
        for (ChildStatement& statement : statements)
            if (statement.sql == sql)
                known = &statement;
        if (known == nullptr) {
            statements.emplace_back();
            known = &statements.back();
            known->sql = sql;
            known->parsed = Ostrel::detail::parse_child_query(with_key(sql, 0).c_str(), known->query);
        }
        known->query.key = key;
        if (known->parsed && database != nullptr &&
            Ostrel::detail::DatabaseAccess::open_grouped(rows, *database, known->query))
            return true;
        return rows.Open(with_key(text, sql, key), database);
    }

    // compact: a read-only document, for a caller that only reads records from it.
    COXMLDocument* to_document(bool compact) const
    {
        if (!plain)
            return through_toolkit();
        if (compact)
            if (COXMLDocument* document = build_compact())
                return document;
        return build_document();
    }

private:
    Element& at(int index) { return elements[static_cast<std::size_t>(index)]; }

    // The names of the set's columns as ids, read again unless they are known for the site.
    Columns& columns_of(const Ostrel::RecordSet& rows, Site site)
    {
        Columns& columns = sites[site];
        const int count = rows.GetFieldCount();
        if (!stable_columns || columns.count != count) {
            columns.count = count;
            columns.ids.clear();
            columns.places.clear();
            for (int i = 0; i < count; ++i)
                columns.ids.push_back(name_id(rows.GetFieldName(i)));
        }
        return columns;
    }

    // Where GetFieldValue finds a name: the first column of exactly that name, else the first of
    // it in any ASCII case; -1 for none.
    static int place_of(const Ostrel::RecordSet& rows, const std::string& name)
    {
        const int count = rows.GetFieldCount();
        for (int i = 0; i < count; ++i)
            if (rows.GetFieldName(i) == name)
                return i;
        auto folded = [](std::string text) {
            for (char& c : text)
                c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
            return text;
        };
        const std::string wanted = folded(name);
        for (int i = 0; i < count; ++i)
            if (folded(rows.GetFieldName(i)) == wanted)
                return i;
        return -1;
    }
    const Element& at(int index) const { return elements[static_cast<std::size_t>(index)]; }

    // The elements in document order, each with its attributes, into a builder; name_of gives
    // what the builder takes for a name id.
    template <class Builder, class NameOf>
    void walk(Builder& builder, NameOf name_of) const
    {
        // Where each name was last given to an element: the rows' columns seldom name an
        // attribute twice for one element, and an element whose names are all new to it takes
        // them without a search for a duplicate.
        std::vector<int> last_use(names.size(), -1);
        // (element, its next child still to go); the tree is a few levels deep.
        std::vector<std::pair<int, int>> open;
        auto enter = [&](int index) {
            const Element& e = at(index);
            builder.open(e.tag);
            const std::size_t end = e.first_attribute + e.attributes;
            bool distinct = true;
            for (std::size_t a = e.first_attribute; a < end; ++a) {
                int& last = last_use[attributes[a].name];
                distinct = distinct && last != index;
                last = index;
            }
            for (std::size_t a = e.first_attribute; a < end; ++a) {
                const auto name = name_of(attributes[a].name);
                const char* value = attributes[a].value;
                if (distinct)
                    builder.append_attribute(name, value, attributes[a].size);
                else
                    builder.attribute(name, value);
            }
            open.emplace_back(index, e.first_child);
        };
        enter(0);
        while (!open.empty()) {
            const int child = open.back().second;
            if (child < 0) {
                builder.close();
                open.pop_back();
            } else {
                open.back().second = at(child).next;
                enter(child);
            }
        }
    }

    COXMLDocument* build_document() const
    {
        oxml::TreeBuilder builder;
        walk(builder, [this](std::uint32_t id) { return names[id].c_str(); });
        COXMLDocument* document = builder.finish();
        // Every name and text of this road is ASCII: the document need not check each text it
        // hands out for characters to convert.
        if (document != nullptr)
            const_cast<COXMLDocumentData*>(COXMLDocumentData::of(document))->all_ascii = true;
        return document;
    }

    // The read-only tree, or null when it can't hold the rows' texts.
    COXMLDocument* build_compact() const
    {
        oxml::CompactBuilder builder;
        std::size_t value_bytes = 0;
        for (const Attribute& a : attributes)
            value_bytes += a.size;
        builder.reserve(elements.size(), attributes.size(), value_bytes);
        // Each name is looked up in the builder once, when first used.
        std::vector<std::uint32_t> handles(names.size(), oxml::CompactTree::kNone);
        walk(builder, [&](std::uint32_t id) {
            std::uint32_t& handle = handles[id];
            if (handle == oxml::CompactTree::kNone)
                handle = builder.name(names[id].c_str());
            return handle;
        });
        const bool ascii = builder.ascii();
        return oxml::compact_document(builder.finish(), ascii);
    }

    COXMLDocument* through_toolkit() const
    {
        std::unique_ptr<CkXml> root(new CkXml());
        root->put_EmitDeclaration(false);
        root->put_Tag(at(0).tag);
        if (!fill(root.get(), 0))
            return nullptr;
        return COXMLDocument::createNewDocument(root->GetSelf());
    }

    bool fill(CkXml* node, int index) const
    {
        const Element& e = at(index);
        for (std::size_t a = e.first_attribute; a < e.first_attribute + e.attributes; ++a)
            node->AddAttribute(names[attributes[a].name].c_str(), attributes[a].value);
        int position = 0;
        for (int child = e.first_child; child >= 0; child = at(child).next) {
            std::unique_ptr<CkXml> made(node->NewChildAfter(position++, at(child).tag, ""));
            if (!made || !fill(made.get(), child))
                return false;
        }
        return true;
    }
};

// --- Reading -------------------------------------------------------------------------------------

namespace {

const std::string kBaseId = "baseID";
const std::string kPackageId = "packageID";
const std::string kStatusId = "statusID";
const std::string kDictionaryId = "dictionaryID";

} // namespace

COXMLDocument* CvellumentDB::readRecords(const CVellument* vellument, Ostrel::DatabaseEx* database) const
{
    if (vellument == nullptr)
        return nullptr;
    return _readRecords(*vellument->m_impl, database);
}

COXMLDocument* CvellumentDB::readRecords(const CVellument* vellument, const std::string& path,
                                         const std::string& password) const
{
    if (!setDatabase(path, password)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return nullptr;
    }
    return readRecords(vellument, nullptr);
}

int CvellumentDB::_checkAndInsertVellument(ReadTree& tree, const std::string& sql) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "[CvellumentDB] Error, vellument with specified year and type does not exist\n");
        return -1;
    }
    const int vellument_id = as_number(rows.GetFieldValue(0));
    rows.Close();

    if (!rows.Open(format("SELECT * FROM VLMauditTrail WHERE parentID = %d", vellument_id).c_str(), database)) {
        VLOG(1, "[CvellumentDB] Error selecting all from vellument where parentID = %d\n", vellument_id);
        return -1;
    }
    const int trail_id = as_number(rows.GetFieldValue(0));
    tree.copy_attributes(0, rows, 3, ReadTree::SITE_TRAIL);
    if (!_addDictionary(tree, 0, as_number(rows.GetFieldValue(std::string("dictionaryID"))))) {
        VLOG(1, "[CvellumentDB] Error adding dictionary to audit trail\n");
        return -1;
    }
    rows.Close();
    return trail_id;
}

bool CvellumentDB::_addDictionary(ReadTree& tree, int parent, int dictionary_id) const
{
    Ostrel::RecordSet rows;
    if (!rows.Open(format("SELECT * FROM VLMdictionaryEntry WHERE parentID = %d", dictionary_id).c_str(),
                   getDatabase()))
        return false;
    if (rows.GetRecordCount() == 0) {
        VLOG(3, "[CvellumenDB] No dictionary entries found\n");
        return true;
    }
    const int dictionary = tree.append_child(parent, "Dictionary");
    for (rows.MoveFirst(); !rows.IsEOF(); rows.MoveNext())
        tree.add_attribute(dictionary, tree.name_id(rows.GetColumnString(1)), rows.GetColumnString(2));
    rows.Close();
    return true;
}

int CvellumentDB::_addPackageOrStatus(ReadTree& tree, int parent, const std::string& sql, const std::string& base_sql,
                                      const char* tag, int index) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet& rows = tree.package_rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return -1;
    }
    const bool package = std::strcmp(tag, "Package") == 0;
    const ReadTree::Site site = package ? ReadTree::SITE_PACKAGE : ReadTree::SITE_STATUS;
    const int base_id = tree.number(rows, site, kBaseId);
    const int element = tree.add_child_after(parent, index, tag);
    tree.copy_attributes(element, rows, 3, site);
    rows.Close();

    std::string text;
    if (!tree.open_with_key(rows, database, base_sql, base_id, text)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return -1;
    }
    tree.copy_attributes(element, rows, 1, ReadTree::SITE_STATUS_BASE);
    rows.Close();
    return element;
}

bool CvellumentDB::_addFilingOrCopy(ReadTree& tree, int parent, const std::string& sql, const std::string& child_sql,
                                    const char* tag, const std::string& key_column) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet& rows = tree.unit_rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return false;
    }
    const bool copy = std::strcmp(tag, "Copy") == 0;
    const char* child_tag = copy ? "History" : "Form";
    static const std::string base_sql = "SELECT * FROM VLMfilingBase WHERE filingBaseID = %d";
    const int count = rows.GetRecordCount();
    Ostrel::RecordSet& base = tree.unit_base_rows;  // opened anew for each row
    std::string statement;                          // likewise, its memory kept
    for (int i = 0; i < count; ++i) {
        const int element = tree.add_child_after(parent, i, tag);
        const ReadTree::Site site = copy ? ReadTree::SITE_COPY : ReadTree::SITE_FILING;
        const int key = tree.number(rows, site, key_column);
        tree.copy_attributes(element, rows, 3, site);

        const int base_id = tree.number(rows, site, kBaseId);
        if (!tree.open_with_key(base, database, base_sql, base_id, statement)) {
            VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
            return false;
        }
        tree.copy_attributes(element, base, 1, ReadTree::SITE_FILING_BASE);
        base.Close();

        if (!_addFormOrHistory(tree, element, with_key(child_sql, key),
                               "SELECT * FROM VLMformBase WHERE formBaseID = %d", child_tag))
            return false;
        rows.MoveNext();
    }
    rows.Close();
    return true;
}

bool CvellumentDB::_addFormOrHistory(ReadTree& tree, int parent, const std::string& sql, const std::string& base_sql,
                                     const char* tag) const
{
    Ostrel::DatabaseEx* database = getDatabase();
    Ostrel::RecordSet& rows = tree.form_rows;
    if (!rows.Open(sql.c_str(), database)) {
        VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
        return false;
    }
    const ReadTree::Site site = std::strcmp(tag, "History") == 0 ? ReadTree::SITE_HISTORY : ReadTree::SITE_FORM;
    const int count = rows.GetRecordCount();
    Ostrel::RecordSet& base = tree.form_base_rows;  // opened anew for each row
    std::string statement;                          // likewise, its memory kept
    for (int i = 0; i < count; ++i) {
        const int element = tree.add_child_after(parent, i, tag);
        tree.copy_attributes(element, rows, 3, site);
        const int base_id = tree.number(rows, site, kBaseId);
        if (!tree.open_with_key(base, database, base_sql, base_id, statement)) {
            VLOG(1, "Error opening vellument db %s", database->GetFilePath().c_str());
            return false;
        }
        tree.copy_attributes(element, base, 1, ReadTree::SITE_FORM_BASE);
        base.Close();
        rows.MoveNext();
    }
    rows.Close();
    return true;
}

COXMLDocument* CvellumentDB::_readRecords(const vellument_impl& vellument, Ostrel::DatabaseEx* given,
                                          bool compact) const
{
    if (given != nullptr && !setDatabase(given)) {
        VLOG(1, "[CvellumentDB] Error setting database\n");
        return nullptr;
    }
    Ostrel::DatabaseEx* database = getDatabase();
    if (database == nullptr || !database->GetOpen() || !_checkTablesExist()) {
        VLOG(1, "[CvellumentDB] Error checking tables %s\n",
             database != nullptr ? database->GetFilePath().c_str() : "");
        return nullptr;
    }

    const Identity id = identity_of(vellument);
    if (id.form_type.empty()) {
        VLOG(3, "[CvellumentDB] Invalid form type returning false");
        return nullptr;
    }
    if (!year_is_number(id.year)) {
        VLOG(1, "[CvellumentDB] Error, vellument with specified year and type does not exist\n");
        VLOG(1, "[CvellumentDB] Error from ReadRecords returning false\n");
        return nullptr;
    }

    const ReadTransaction read_transaction(database);
    ReadTree tree("AuditTrail");
    tree.stable_columns = read_transaction.begun();
    if (read_transaction.begun()) {
        // Every table below the transactions is asked for once per parent: grouped at once.
        static const char* const kChildStatements[] = {
            "SELECT * FROM VLMdictionaryEntry WHERE parentID = 0", "SELECT * FROM VLMpackage WHERE parentID = 0",
            "SELECT * FROM VLMstatus WHERE parentID = 0",          "SELECT * FROM VLMfiling WHERE parentID = 0",
            "SELECT * FROM VLMform WHERE parentID = 0",            "SELECT * FROM VLMcopy WHERE parentID = 0",
            "SELECT * FROM VLMhistory WHERE parentID = 0",
        };
        Ostrel::detail::ChildQuery query;
        for (const char* statement : kChildStatements)
            if (Ostrel::detail::parse_child_query(statement, query))
                Ostrel::detail::DatabaseAccess::expect_queries(*database, query);
    }
    const int trail_id = _checkAndInsertVellument(
        tree,
        format("SELECT vellumentID FROM VLMcurrentVellument WHERE FormType = '%s' AND FilingYear = %s AND Extension = "
               "'%s';",
               id.form_type.c_str(), id.year.c_str(), id.extension.c_str()));
    if (trail_id < 1) {
        VLOG(1, "[CvellumentDB] Error from ReadRecords returning false\n");
        return nullptr;
    }

    Ostrel::RecordSet transactions;
    if (!transactions.Open(format("SELECT * FROM VLMtransaction WHERE parentID = %d", trail_id).c_str(), database)) {
        VLOG(1, "Error opening vellument %s", vellument.vellument_name.c_str());
        return nullptr;
    }
    const int count = transactions.GetRecordCount();
    const std::uint32_t action = transactions.GetFieldCount() > 1 ? tree.name_id(transactions.GetFieldName(1)) : 0;
    for (int i = 0; i < count; ++i) {
        const int transaction = tree.add_child_after(0, i, "Transaction");
        if (transactions.GetFieldCount() > 1)
            tree.add_attribute(transaction, action, transactions.GetColumnString(1));
        const int package_id = tree.number(transactions, ReadTree::SITE_TRANSACTION, kPackageId);
        const int status_id = tree.number(transactions, ReadTree::SITE_TRANSACTION, kStatusId);
        const int dictionary_id = tree.number(transactions, ReadTree::SITE_TRANSACTION, kDictionaryId);

        if (!_addDictionary(tree, transaction, dictionary_id)) {
            VLOG(1, "[CvellumentDB] Error adding dictionary to transaction\n");
            return nullptr;
        }

        // The package and status rows are asked for by their own keys, which run in step with
        // the transaction's.
        const int package = _addPackageOrStatus(tree, transaction,
                                                format("SELECT * FROM VLMpackage WHERE parentID = %d", package_id),
                                                "SELECT * FROM VLMstatusBase WHERE statusBaseID = %d", "Package", i);
        if (package < 0 ||
            !_addFilingOrCopy(tree, package, format("SELECT * FROM VLMfiling WHERE parentID = %d", package_id),
                              "SELECT * FROM VLMform WHERE parentID = %d", "Filing", "filingID")) {
            VLOG(1, "[CvellumentDB] Error selecting from filing\n");
            return nullptr;
        }

        const int status = _addPackageOrStatus(tree, transaction,
                                               format("SELECT * FROM VLMstatus WHERE parentID = %d", status_id),
                                               "SELECT * FROM VLMstatusBase WHERE statusBaseID = %d", "Status", i);
        if (status < 0 ||
            !_addFilingOrCopy(tree, status, format("SELECT * FROM VLMcopy WHERE parentID = %d", status_id),
                              "SELECT * FROM VLMhistory WHERE parentID = %d", "Copy", "copyID")) {
            VLOG(1, "[CvellumentDB] Error selecting from copy\n");
            return nullptr;
        }
        if (i == 0)
            tree.expect(count);
        transactions.MoveNext();
    }
    transactions.Close();

    return tree.to_document(compact);
}
