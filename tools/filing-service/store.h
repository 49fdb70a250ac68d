#ifndef VELLUMENT_FILING_SERVICE_STORE_H
#define VELLUMENT_FILING_SERVICE_STORE_H

// The service's data in one SQLite database in its data directory: every stored version of every
// vellument, the copies the service holds for each filing, and the faults queued by the admin
// commands. WAL with a busy time-out, so that the server's threads and the admin commands work on
// it at once; every change is one transaction, committed before the client hears of it.

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct sqlite3;

namespace fs_store {

// A filing: EIN (as the client sends it, without hyphens), form name and year, as texts.
struct FilingKey {
    std::string ein;
    std::string form;
    std::string year;
};

// One copy as the service knows it. `type` is "FED", "STATE", "LOCAL" or "EMP".
struct Copy {
    std::string type;
    std::string code;
    long vlid = 0;
    bool replaceable = false;
    bool deleted = false;
};

struct FilingCopy {
    FilingKey filing;
    Copy copy;
};

struct Version {
    int number = 0;  // 1 for the first version of the filing
    std::string stored_at;
    std::string hash;
    std::string text;
    std::string source;  // "StoreVellument" or "put"
};

// A queued fault: what the next `remaining` requests of `operation` ("any" for all) get.
struct Fault {
    long long id = 0;
    std::string operation;
    std::string kind;
    std::string text;
    long remaining = 0;
    long delay_ms = 0;
};

class StoreError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One connection; use one object per thread.
class Store {
public:
    // Opens (and on first use creates) the database in the directory, which must exist.
    explicit Store(const std::string& directory);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    static std::string database_path(const std::string& directory);

    // Keeps a new version and, in the same transaction, takes in the given copies that the service
    // holds no record of (not even a removed one). Returns the version's number.
    int store_version(const FilingKey& key, const std::string& hash, const std::string& text,
                      const std::string& source, const std::vector<Copy>& intake);
    // The latest version, or with number > 0 that version; false when there is none.
    bool get_version(const FilingKey& key, Version& out, int number = 0);
    // Number of versions of the filing, 0 when none.
    int version_count(const FilingKey& key);

    // The copies the service holds for the filing, in the order it learnt them; false when it
    // knows nothing of the filing.
    bool get_status(const FilingKey& key, std::vector<Copy>& copies);
    // Every copy held, of all filings or of those that match the non-empty parts of the filter.
    std::vector<FilingCopy> list_copies(const FilingKey& filter);

    // Adds or changes a copy (a removed one comes back); unset fields keep their value, or their
    // default on a new copy. Returns true when the copy is new.
    bool set_copy(const FilingKey& key, const std::string& type, const std::string& code,
                  std::optional<long> vlid, std::optional<bool> replaceable, std::optional<bool> deleted);
    // Forgets a copy, also for later intakes. False when the service holds no such copy.
    bool remove_copy(const FilingKey& key, const std::string& type, const std::string& code);

    long long add_fault(const Fault& fault);
    int clear_faults();
    std::vector<Fault> list_faults();
    // Takes one use of the oldest queued fault for the operation (or for any); false when none.
    bool take_fault(const std::string& operation, Fault& out);

private:
    void exec(const char* sql);
    long long filing_id(const FilingKey& key, bool create);
    sqlite3* db_ = nullptr;
};

} // namespace fs_store

#endif
