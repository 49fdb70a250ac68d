// Hash checks before loading, and the save with its backup, hash record and upload.

#include "Vellument/Vellument_impl.h"

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <vellument/AuditUtil.h>
#include <vellument/CDictionary.h>
#include <vellument/CPathHandling.h>
#include <vellument/CStatus.h>
#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/CkByteData.h>
#include <vellument/CkCrypt2.h>
#include <vellument/CkStringBuilder.h>
#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>
#include <vellument/ServerFunctions.h>
#include <vellument/eFileSOAPS.h>

#include "Ostrel/LogMacros.h"
#include "Ostrel/XML_ElementWriter.h"
#include "Ostrel/XML_TextWriter.h"

namespace {

const char kSection[] = "VELLUMENT";
const char kNotFound[] = "Not Found";
const char kUploadPrefix[] = "UploadSucceeded_";
const char kDateFormat[] = "%m/%d/%Y %H:%M:%S";

// The root element's attributes, in file order.
const char* const kRootNames[] = {"Version",     "PeriodStart", "PeriodEnd",    "RegMode",  "FormType",
                                  "VendorCode",  "FilingYear",  "ModifiedDate", "FilingEIN"};

// The upload result before the call: a transport failure leaves it, and it must then read as failed.
const int kUploadNotSent = -1;

// The last three characters, compared without regard to case.
bool has_extension(const std::string& name, const char* extension)
{
    if (name.size() < 3)
        return false;
    return Ostrel::Format::EqualsNoCaseAscii(name.substr(name.size() - 3), extension);
}

} // namespace

std::string vellument_impl::history_settings_path()
{
    return CPathHandling::get_company_dir() + "Histories\\Vellument.INI";
}

std::string vellument_impl::hash_file(const std::string& path)
{
    CkCrypt2 crypt;
    crypt.put_HashAlgorithm("md5");
    CkByteData digest;
    CkStringBuilder text;
    if (crypt.HashFile(path.c_str(), digest))
        text.AppendEncoded(digest, "hex");
    const char* hex = text.GetAsString();
    if (hex == nullptr || *hex == '\0')
        return "-1";
    return Ostrel::Format::ToLowerAscii(hex);
}

bool vellument_impl::validate_vellument(std::string& name, const char* year_argument, const char* ein)
{
    // Only live vellument files are compared: a test-mode file or a plain XML is never replaced.
    if (!has_extension(name, "VLM")) {
        VLOG(3, "[VellumentImpl] Not an vellument NAME: %s\n", name.c_str());
        return false;
    }

    const std::string file_hash = hash_file(name);
    VLOG(3, "[Vellument] Getting Hash from: %s\n", name.c_str());
    VLOG(3, "[Vellument] Vellument Hash = %s\n", file_hash.c_str());
    hash_value_exists = file_hash != "-1";

    const std::string settings = history_settings_path();
    VLOG(3, "[Vellument] Checking %s for saved hashes\n", settings.c_str());
    const std::string saved_hash = _GetValue(settings, kSection, name.c_str(), kNotFound, true);
    VLOG(3, "[Vellument] Saved Hash = %s\n", saved_hash.c_str());
    saved_hash_exists = saved_hash != kNotFound;

    const std::string upload_status = _GetValue(settings, kSection, (kUploadPrefix + name).c_str(), kNotFound, true);
    VLOG(3, "[Vellument] Upload Status = %s\n", upload_status.c_str());
    // Only a copy that an upload from here stored may come back down; a failed upload stops that.
    const bool upload_good = upload_status != kNotFound && upload_status != "false";

    const std::string form_type = create_form_type_text();
    VLOG(3, "[Vellument] The Form Type = %s\n", form_type.c_str());

    std::string year = Ostrel::Format::TextOf(year_argument);
    if (year.empty())
        year = year_from_name(name);

    const char* filer = ein != nullptr ? ein : "";
    int error = 0;
    const std::string server_hash = eFileSOAPS::get_vellument_hash(filer, form_type.c_str(), year.c_str(), error);
    VLOG(3, "[Vellument] Server Hash = %s\n", server_hash.c_str());
    server_hash_exists = !server_hash.empty();
    downloaded_vellument = false;

    // The download is recorded whether or not it worked: the .Backup is the way back.
    if (upload_good && !server_hash.empty() && file_hash != server_hash && error == 0 &&
        !skip_download(year.c_str(), form_type.c_str())) {
        download_vellument(filer, form_type.c_str(), year.c_str(), name.c_str());
        VLOG(3, "[Vellument] Saving Hash from Server %s\n", server_hash.c_str());
        name = Ostrel::Format::ToUpperAscii(name);
        _SetValue(settings.c_str(), name.c_str(), server_hash.c_str());
        downloaded_vellument = true;
    }

    return file_hash != saved_hash;
}

std::array<std::string, vellument_impl::kRootAttributes> vellument_impl::root_values() const
{
    return {"200",        filing_period_start, filing_period_end, registration_mode,
            form_type_string, vendor_code,     filing_year,       modified_date.format(kDateFormat),
            filing_ein};
}

COXMLNode* vellument_impl::create_xml_node(COXMLDocument* document)
{
    root_node = document->createElement("AuditTrail");
    const std::array<std::string, kRootAttributes> values = root_values();
    for (std::size_t i = 0; i < kRootAttributes; ++i)
        root_node->setAttribute(kRootNames[i], values[i].c_str());

    if (!dictionary->empty()) {
        if (COXMLNode* node = dictionary->create_xml_node(document))
            root_node->appendChild(node, true);
    }
    for (CTransaction* transaction : transactions) {
        if (transaction == nullptr)
            continue;
        if (COXMLNode* node = transaction->create_xml_node(document))
            root_node->appendChild(node, true);
    }
    return root_node;
}

std::vector<COXMLNode*> vellument_impl::build_dictionaries(COXMLDocument* scratch) const
{
    std::vector<COXMLNode*> built;
    for (const CTransaction* transaction : transactions) {
        const CDictionary* entries = transaction != nullptr ? transaction->get_dictionary() : nullptr;
        if (entries != nullptr && !entries->empty())
            built.push_back(entries->create_xml_node(scratch));
    }
    return built;
}

void vellument_impl::write_text(oxml::TextWriter& out, const std::array<std::string, kRootAttributes>& values,
                                COXMLNode* document_dictionary) const
{
    out.open("AuditTrail");
    for (std::size_t i = 0; i < kRootAttributes; ++i)
        out.text(kRootNames[i], values[i]);
    if (!dictionary->empty())
        out.element(document_dictionary);
    for (const CTransaction* transaction : transactions) {
        if (transaction != nullptr)
            out.record(*transaction);
    }
    out.close();
}

void vellument_impl::save_vellument()
{
    VLOG(3, "[Vellument] In SaveVellument \n");
    const std::string backup =
        vellument_name.substr(0, vellument_name.size() > 3 ? vellument_name.size() - 3 : 0) + "BAK";
    VLOG(3, "[Vellument] Making backup of Vellument: %s \n", backup.c_str());
    // The code is taken before the copy, so it says nothing about the copy itself.
    const unsigned long error = Ostrel::Error::GetLastError();
    const bool copied = Ostrel::FileSystem::CopyFileA(vellument_name.c_str(), backup.c_str(), false);
    VLOG(3, "[Vellument] Save for the vellument copying of BAK %d with errorCode %ld", copied ? 1 : 0,
         static_cast<long>(error));
}

bool vellument_impl::save_to_current_database()
{
    return save_to_database(database->getDatabasePath(), database->getDatabasePassword(), std::string());
}

void vellument_impl::save_after_open()
{
    if (save_to_current_database())
        VLOG(3, "SAVING VELLUMENT TO DB %s", database->getDatabasePath().c_str());
}

int vellument_impl::save(const char* file_name)
{
    const std::string target = file_name != nullptr ? std::string(file_name) : vellument_name;
    VLOG(3, "[Vellument] In Save: filename = %s \n", target.c_str());

    std::unique_ptr<COXMLDocument> document(COXMLDocument::createDocument());
    // The records print themselves unless the root's own values need what a tree stores for them.
    // The dictionaries are built first all the same, so that what they log comes where it would.
    const std::array<std::string, kRootAttributes> values = root_values();
    bool as_text = true;
    for (const std::string& value : values)
        as_text = as_text && oxml::is_printable_ascii(value.data(), value.size());
    std::unique_ptr<COXMLDocument> scratch;
    COXMLNode* document_dictionary = nullptr;
    std::vector<COXMLNode*> dictionaries;
    if (as_text) {
        scratch.reset(COXMLDocument::createDocument());
        if (!dictionary->empty())
            document_dictionary = dictionary->create_xml_node(scratch.get());
        dictionaries = build_dictionaries(scratch.get());
    } else {
        document->appendChild(create_xml_node(document.get()), true);
    }
    VLOG(3, "[Vellument] Saving %s \n", target.c_str());
    document->clearXMLError();

    const bool live = has_extension(target, "VLM");
    if (live)
        save_vellument();
    if (has_extension(target, "TLM")) {
        const std::string now = CDateTime::now().format(kDateFormat);
        document->setAttribute("ModifiedDate", now.c_str());
    }

    int result = 0;
    if (as_text) {
        result = oxml::save_text(document.get(), target.c_str(), [&](oxml::TextWriter& out) {
            out.set_ready(dictionaries);
            write_text(out, values, document_dictionary);
        });
    } else {
        result = document->save(target.c_str());
    }
    VLOG(3, "[Vellument] Return code = %d \n", result);
    if (result == 0) {
        document->getXMLError(&xml_error_code, xml_error_text, static_cast<int>(sizeof xml_error_text));
        VLOG(1, "[Vellument] Save error = %d, %s \n", xml_error_code, xml_error_text);
        const std::string message =
            std::string("Error saving vellument ") + target + " with error result " + xml_error_text;
        Ostrel::Log::msgBoxReturn(__FILE__, __LINE__, __func__, Ostrel::Log::LEVEL_INFO, message.c_str(), 0);
    }
    // The tree is written: its memory goes before the read-back builds a second one.
    document.reset();
    scratch.reset();
    if (!live)
        return result;

    // Whatever now stands on disk, written or not, is what the next open compares with.
    const std::string hash = hash_file(target);
    VLOG(3, "[Vellument] HashValue = %s \n", hash.c_str());
    const std::string settings_upper = Ostrel::Format::ToUpperAscii(history_settings_path());
    VLOG(3, "[Vellument] WritePrivateProfileString(VELLUMENT, %s, %s, %s) \n", target.c_str(), hash.c_str(),
         settings_upper.c_str());
    _SetValue(settings_upper.c_str(), target.c_str(), hash.c_str());

    CTransaction* current = transactions.empty() ? nullptr : transactions.back();
    const bool any_efiled = current != nullptr && current->get_status()->getAnyEfiledStatus();
    VLOG(3, "[Vellument] Current efiled status %s\n", AuditUtil::to_string(any_efiled).c_str());

    // Read the document back as the next open will see it; its dictionary says whether to start over.
    bool start_over = false;
    {
        CVellument read_back;
        try {
            read_back.open(vellument_name.c_str(), "", "", "", false, true);
        } catch (...) {
            VLOG(1, "[Vellument] Could not open vellument Unknown std::exception\n");
        }
        const CDictionary* read_dictionary = read_back.get_dictionary();
        auto found = read_dictionary->find("STARTOVER");
        const std::string start_over_text = found != read_dictionary->end() ? found->second : std::string();
        start_over = found != read_dictionary->end() && AuditUtil::to_int(start_over_text.c_str()) == 1;
        VLOG(3, "[Vellument] Start Over = %s\n", start_over_text.c_str());
    }

    const std::string upload_status =
        _GetValue(history_settings_path(), kSection, (kUploadPrefix + target).c_str(), kNotFound, true);
    VLOG(3, "[Vellument] Save Upload Status = %s\n", upload_status.c_str());

    // A document that was never e-filed stays on this machine; a start-over goes up only where an
    // earlier upload stored a copy.
    if (!any_efiled && !(start_over && upload_status == "true"))
        return result;

    VLOG(3, "[Vellument] Calling StoreVellument %s \n", target.c_str());
    int upload_result = kUploadNotSent;
    eFileSOAPS::StoreVellument(filing_ein.c_str(), form_type_string.c_str(), filing_year.c_str(), hash.c_str(),
                               target.c_str(), upload_result);
    VLOG(3, "[Vellument] StoreVellument returned %d \n", upload_result);
    _SetValue(settings_upper.c_str(), (kUploadPrefix + target).c_str(), upload_result == 0 ? "true" : "false");
    return result;
}
