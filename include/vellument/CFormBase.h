#ifndef VELLUMENT_CFORMBASE_H
#define VELLUMENT_CFORMBASE_H

#include <cstddef>
#include <string>

#include <vellument/DateTime.h>
#include <vellument/VellumentTypes.h>
#include <vellument/attributeDic.h>
#include <vellument/export.h>

class COXMLNode;
class COXMLDocument;

// What a form and a history share: the kind of form, where its output lies and which form data it
// came from. Paths of the output are held company-relative and given out absolute.
// Not polymorphic: never delete a CForm or a CHistory through a CFormBase pointer.
class VELLUMENT_API CFormBase {
public:
    CFormBase();
    // Copies every field; a null source gives the defaults.
    explicit CFormBase(const CFormBase* source);
    // Reads the form attributes of a Form or History element; Completion is never read, so a form
    // from a document is Append. A null node gives the defaults.
    explicit CFormBase(COXMLNode* node);
    ~CFormBase();

    CFormBase(const CFormBase&) = delete;
    CFormBase& operator=(const CFormBase&) = delete;

    // A new element `name` with all twelve form attributes; null when document or name is null.
    COXMLNode* create_xml_node(COXMLDocument* document, const char* name) const;
    attributeDicList getAndFillMapBase() const;

    Vellument::FORM_TYPE get_type() const;
    void set_type(Vellument::FORM_TYPE type) const;
    std::string get_type_string() const;

    Vellument::FORM_FLAGS get_flags() const;
    void set_flags(Vellument::FORM_FLAGS flags) const;
    std::string get_flags_string() const;

    Vellument::FORM_COMPLETION get_completion() const;
    void set_completion(Vellument::FORM_COMPLETION completion) const;
    std::string get_completion_string() const;

    std::string get_form_name() const;
    void set_form_name(const std::string& name) const;

    std::string get_description() const;
    void set_description(const std::string& description) const;

    // Output paths: stored relative, given out under the present company directory.
    std::string get_location() const;
    void set_location(const std::string& path) const;
    std::string get_exml_location() const;
    void set_exml_location(const std::string& path) const;

    // Kept exactly as given: no path conversion.
    std::string get_krf_db_path() const;
    void set_krf_db_path(const std::string& path) const;

    std::string get_krf_version() const;
    void set_krf_version(const std::string& version) const;

    int get_krf_filter_number() const;
    void set_krf_filter_number(int number) const;
    int get_krf_filter_number_2() const;
    void set_krf_filter_number_2(int number) const;

    std::string get_divider_form() const;
    void set_divider_form(const std::string& divider) const;

protected:
    // The class's own attributes in file order, to a tree's element writer or to a text writer.
    template <class Writer>
    void write_attributes(Writer& writer) const;

    // For a derived class whose own record shares one allocation with this class's: `size` bytes
    // of room follow the base's record, at derived_record().
    struct Extra {
        std::size_t size;
    };
    explicit CFormBase(Extra extra);
    CFormBase(const CFormBase* source, Extra extra);
    CFormBase(COXMLNode* node, Extra extra);
    void* derived_record() const;

private:
    struct Record;
    Record* m_base;
};

#endif
