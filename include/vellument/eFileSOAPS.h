#ifndef VELLUMENT_EFILESOAPS_H
#define VELLUMENT_EFILESOAPS_H

// The client of the filing service: four SOAP 1.1 operations over HTTPS.
//
// Each operation reports through error, which it sets only on the outcomes it knows and never
// clears on entry: a caller presets it and reads an unchanged value as a failure. The URL is
// chosen anew for every request from Settings.ini in the local application data directory.

#include <vellument/export.h>

#include <memory>
#include <string>

class CStatus;
class COXMLDocument;
class COXMLNodeList;

// Fixed when the library is built.
VELLUMENT_API extern const char* const service_namespace;
VELLUMENT_API extern const char* const status_server_url;
VELLUMENT_API extern const char* const status_test_server_url;
VELLUMENT_API extern const char* const efile_host_name;
VELLUMENT_API extern const char* const access_key;

class VELLUMENT_API eFileSOAPS {
public:
    eFileSOAPS();
    virtual ~eFileSOAPS();
    eFileSOAPS(const eFileSOAPS&) = delete;
    eFileSOAPS& operator=(const eFileSOAPS&) = delete;

    // What the server knows of this filer's copies. Always a new status (caller deletes), empty
    // on a failure; error is 0, or the code of the failure.
    CStatus* get_filing(const char* ein, const char* formName, const char* year, int& error);
    // get_filing with the code dropped.
    CStatus* GetFiling(const char* ein, const char* formName, const char* year);

    // Uploads the vellument file at path (a Windows-form path) with its hash.
    static void StoreVellument(const char* ein, const char* formName, const char* year, const char* hash,
                               const char* path, int& error);
    // The text of the vellument that the server holds.
    static std::string GetVellument(const char* ein, const char* formName, const char* year, int& error);
    // The hash that the server holds for the vellument.
    static std::string get_vellument_hash(const char* ein, const char* formName, const char* year, int& error);

private:
    void add_copies_of_type(CStatus* status, int type);

    std::string m_text;
    COXMLDocument* m_document;
    std::shared_ptr<COXMLNodeList> m_copy_nodes;
};

#endif
