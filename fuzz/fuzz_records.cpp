// Arbitrary bytes as a vellument document: every transaction is read into records, and the
// records are written into a new document and read back; the bytes as a file are opened as a
// vellument, read-only. Hostile attribute values, missing elements and odd nesting must not crash.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <vellument/CTransaction.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

#include "fuzz/work_dir.h"
#include "tests/save_sameness.h"

namespace {

int quiet_box(void*, const char*, unsigned int) { return 1; }

// A private directory for the file and the library's settings, removed when the fuzzer exits.
struct WorkDir {
    std::string dir;
    std::string file;
    std::string windows;  // the file's name as the application gives it
    std::string saved;    // where the opened trail is saved again
    std::string saved_windows;
    std::string tree;     // where its trees are printed
    WorkDir()
    {
        dir = make_fuzz_work_dir("records");
        file = dir + "/Vellument_W2_2021.XML";
        windows = Ostrel::FileSystem::ToWindowsPath(file.c_str());
        saved = dir + "/SAVED.XML";
        saved_windows = Ostrel::FileSystem::ToWindowsPath(saved.c_str());
        tree = dir + "/tree.xml";
        setenv("VELLUMENT_APPDATA", dir.c_str(), 1);
        Ostrel::Log::SetLevel(0);
        // The reference list is missing here, which the library would tell the user in a box.
        Ostrel::Log::SetMessageBoxHandler(quiet_box, nullptr);
    }
    ~WorkDir()
    {
        std::remove(file.c_str());
        std::remove(saved.c_str());
        std::remove(tree.c_str());
        rmdir(dir.c_str());
    }
};

const WorkDir& work()
{
    static WorkDir dir;
    return dir;
}

// Opening never writes when read-only; a document without a transaction throws 0. What opens is
// saved again, and the save must print what the records' trees print.
void open_as_vellument(const uint8_t* data, size_t size)
{
    const WorkDir& w = work();
    if (!Ostrel::FileSystem::WriteBinaryFile(w.file.c_str(), data, size))
        return;
    CVellument vellument;
    try {
        vellument.open(w.windows.c_str(), "", "", "", false, true);
    } catch (int) {
        return;
    }
    if (vellument.save(w.saved_windows.c_str()) == 0)
        return;
    std::string saved;
    Ostrel::FileSystem::ReadFile(w.saved.c_str(), saved);
    if (saved != save_sameness::printed_by_the_tree(vellument, w.saved, w.tree))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Records are found at any depth, so nesting them costs size times depth; keep each run small.
    if (size > 16384)
        return 0;
    open_as_vellument(data, size);
    std::string text(reinterpret_cast<const char*>(data), size);
    std::unique_ptr<COXMLDocument> source(COXMLDocument::loadXML(text.c_str(), nullptr, nullptr, 0));
    if (!source)
        return 0;
    COXMLNode* root = source->getDocumentElement();
    if (root == nullptr)
        return 0;
    std::shared_ptr<COXMLNodeList> nodes = root->getElementsByTagName("Transaction");
    std::vector<std::unique_ptr<CTransaction>> trail;
    for (int i = 0; i < nodes->length(); ++i)
        trail.emplace_back(new CTransaction(nodes->item(i)));

    std::unique_ptr<COXMLDocument> copy(COXMLDocument::createDocument());
    COXMLNode* copy_root = copy->appendChild(copy->createElement("AuditTrail"), true);
    for (const auto& transaction : trail) {
        COXMLNode* node = transaction->create_xml_node(copy.get());
        if (node != nullptr && copy_root != nullptr)
            copy_root->appendChild(node, true);
    }
    if (copy_root != nullptr) {
        std::shared_ptr<COXMLNodeList> again = copy_root->getElementsByTagName("Transaction");
        for (int i = 0; i < again->length(); ++i)
            CTransaction reread(again->item(i));
    }
    return 0;
}
