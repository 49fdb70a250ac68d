#ifndef VELLUMENT_CFILINGBASE_H
#define VELLUMENT_CFILINGBASE_H

#include <cstddef>
#include <string>

#include <vellument/DateTime.h>
#include <vellument/VellumentTypes.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

class COXMLNode;
class COXMLDocument;

// The identity of one filed unit and its state flags, shared by a filing (preparing side) and a
// copy (status side).
class VELLUMENT_API CFilingBase {
public:
    CFilingBase();
    // Copies everything but the mailed flag, which a copy starts without. Null gives the defaults.
    explicit CFilingBase(const CFilingBase* source);
    // Reads the identity, the flags and KRFPath; the date is read by the derived readers.
    explicit CFilingBase(COXMLNode* node);
    virtual ~CFilingBase();

    CFilingBase(const CFilingBase&) = delete;
    CFilingBase& operator=(const CFilingBase&) = delete;

    // A new element `name`: Date (only when non-zero), then the identity, flags and KRFPath.
    // Null when document or name is null.
    COXMLNode* create_xml_node(COXMLDocument* document, const char* name) const;
    attributeDicList getAndFillMapBase() const;

    static std::string to_type_string(Vellument::FILING_TYPE type);
    static Vellument::FILING_TYPE to_filing_type(const std::string& text);

    Vellument::FILING_TYPE get_type() const;
    void set_type(Vellument::FILING_TYPE type) const;

    // "FE" for the federal unit, the state for a state filing.
    std::string get_identifier() const;
    void set_identifier(const std::string& identifier) const;

    // Form-data file: stored relative, given out under the present company directory.
    std::string get_krf_file_location() const;
    void set_krf_file_location(const std::string& path) const;

    int get_vlid() const;
    void set_vlid(int vlid) const;

    bool get_printed_flag() const;
    void set_printed_flag(bool flag) const;
    bool get_mailed_flag() const;
    void set_mailed_flag(bool flag) const;
    bool get_efiled_flag() const;
    void set_efiled_flag(bool flag) const;
    bool get_corrected_flag() const;
    void set_corrected_flag(bool flag) const;
    bool get_replacement_flag() const;
    void set_replacement_flag(bool flag) const;
    bool get_replaceable_flag() const;
    void set_replaceable_flag(bool flag) const;

    CDateTime get_date() const;
    void set_date(CDateTime date) const;

protected:
    // The class's own attributes in file order, to a tree's element writer or to a text writer.
    template <class Writer>
    void write_attributes(Writer& writer) const;

    // For the derived readers: parses `text` into the date when it isn't empty.
    void read_date(const char* text) const;

    // For a derived class whose own record shares one allocation with this class's: `size` bytes
    // of room follow the base's record, at derived_record().
    struct Extra {
        std::size_t size;
    };
    explicit CFilingBase(Extra extra);
    CFilingBase(const CFilingBase* source, Extra extra);
    CFilingBase(COXMLNode* node, Extra extra);
    void* derived_record() const;

private:
    struct Record;
    Record* m_base;
};

#endif
