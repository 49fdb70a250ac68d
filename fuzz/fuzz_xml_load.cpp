// Feeds bytes to the XML document as text in memory and as a file, walks what comes out, and
// checks that a loaded document saves into a file that loads back with as many elements.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>

#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

#include "fuzz/work_dir.h"

namespace {

// A private directory for the input and output files, removed when the fuzzer exits.
struct WorkDir {
    std::string dir;
    std::string input;
    std::string output;
    WorkDir()
    {
        dir = make_fuzz_work_dir("xml-load");
        input = dir + "/in.xml";
        output = dir + "/out.xml";
        Ostrel::Log::SetLevel(0);
    }
    ~WorkDir()
    {
        std::remove(input.c_str());
        std::remove(output.c_str());
        rmdir(dir.c_str());
    }
};

const WorkDir& work()
{
    static WorkDir dir;
    return dir;
}

const char* const kQueries[] = {
    "./Dictionary", "./Package", "./Status", "//Task[@TaskNum=\"1\"]", "//Task[@ResultCode!=\"Succeeded\"]",
    "//SubmissionStatus", "//Copy", "//Copy[@CopyType='FED']", "//*", "..", "//@*",
};

// Reads everything a caller could read; the results must be readable text.
std::size_t walk(COXMLDocument* doc)
{
    std::size_t total = 0;
    COXMLNode* root = doc->getDocumentElement();
    if (root == nullptr)
        std::abort();  // a document that loaded has a root
    auto all = doc->getElementsByTagName("*");
    for (int i = 0; i < all->length(); ++i) {
        COXMLNode* n = all->item(i);
        total += std::string(n->nodeName()).size() + std::string(n->getText()).size();
        auto attributes = n->attributes();
        for (int a = 0; a < attributes->length(); ++a) {
            COXMLNode* attribute = attributes->item(a);
            total += std::string(n->getAttribute(attribute->nodeName())).size();
            total += std::string(attribute->getText()).size();
        }
    }
    for (const char* q : kQueries) {
        if (COXMLNode* hit = root->selectSingleNode(q))
            total += std::string(hit->nodeName()).size();
        if (auto list = doc->selectNodes(q, true))
            total += static_cast<std::size_t>(list->length());
    }
    return total;
}

void check_round_trip(COXMLDocument* doc)
{
    const WorkDir& w = work();
    if (!doc->save(w.output.c_str()))
        std::abort();
    int code = 0;
    char text[256];
    std::unique_ptr<COXMLDocument> back(COXMLDocument::load(w.output.c_str(), &code, text, sizeof text));
    if (!back) {
        std::fprintf(stderr, "saved document doesn't load: %d %s\n", code, text);
        std::abort();
    }
    if (back->getElementsByTagName("*")->length() != doc->getElementsByTagName("*")->length())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const WorkDir& w = work();
    std::string bytes(reinterpret_cast<const char*>(data), size);

    int code = 0;
    char text[256];
    std::unique_ptr<COXMLDocument> doc(COXMLDocument::loadXML(bytes.c_str(), &code, text, sizeof text));
    if (doc)
        walk(doc.get());

    if (!Ostrel::FileSystem::WriteBinaryFile(w.input.c_str(), data, size))
        return 0;
    std::unique_ptr<COXMLDocument> file(COXMLDocument::load(w.input.c_str(), &code, text, 16));
    // A save is slow (it syncs to disk): one round trip per input.
    if (file) {
        walk(file.get());
        check_round_trip(file.get());
    } else if (doc) {
        check_round_trip(doc.get());
    }
    return 0;
}
