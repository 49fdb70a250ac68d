// Arbitrary bytes through the compact reader of read-only opens: it must never crash, never fail
// on text the check passed, and where it takes a text it must hold what the parser's document of
// the same file holds, and a vellument opened from it must equal one opened through the parser.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unistd.h>

#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

#include "Ostrel/XML_Compact.h"
#include "Ostrel/XML_WellFormed.h"
#include "fuzz/work_dir.h"
#include "tests/compact_sameness.h"

namespace {

int quiet_box(void*, const char*, unsigned int) { return 1; }

// The file as it is and with a DOCTYPE, which the compact reader leaves to the parser.
struct WorkDir {
    std::string dir, plain, doctype, plain_windows, doctype_windows;
    WorkDir()
    {
        dir = make_fuzz_work_dir("xml-compact");
        plain = dir + "/Vellument_W2_2021.VLM";
        doctype = dir + "/Vellument_W2_2022.VLM";
        plain_windows = Ostrel::FileSystem::ToWindowsPath(plain.c_str());
        doctype_windows = Ostrel::FileSystem::ToWindowsPath(doctype.c_str());
        setenv("VELLUMENT_APPDATA", dir.c_str(), 1);
        Ostrel::Log::SetLevel(0);
        Ostrel::Log::SetMessageBoxHandler(quiet_box, nullptr);
    }
    ~WorkDir()
    {
        std::remove(plain.c_str());
        std::remove(doctype.c_str());
        rmdir(dir.c_str());
    }
};

const WorkDir& work()
{
    static WorkDir dir;
    return dir;
}

std::string open_read_only(const std::string& windows)
{
    try {
        CVellument v;
        v.open(windows.c_str(), "", "", "", false, true);
        return compact_sameness::dump(v);
    } catch (int) {
        return "threw";
    }
}

void fail(const char* what, const std::string& detail)
{
    std::fprintf(stderr, "compact reader: %s %s\n", what, detail.c_str());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Records nest at any depth, and reading them costs size times depth: keep each run small.
    // The loader converts a marked, wide or code-page file before either reader sees it; such
    // bytes are left out, so that both readers here see the same text.
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    if (size > 16384 || size == 0 || bytes.find('\0') != std::string::npos ||
        static_cast<unsigned char>(bytes[0]) >= 0xEF)
        return 0;
    const std::string declaration = bytes.substr(0, bytes.find("?>"));
    if (declaration.find("encoding") != std::string::npos && declaration.find("UTF-8") == std::string::npos &&
        declaration.find("utf-8") == std::string::npos)
        return 0;
    oxml::WellFormedResult check;
    if (!oxml::check_well_formed(bytes.data(), bytes.size(), check))
        return 0;
    std::string text = bytes;
    oxml::CompactTree tree;
    const oxml::CompactTree::Outcome outcome = tree.build(text, check);
    if (outcome == oxml::CompactTree::kFailed)
        fail("failed on text the check passed", "");
    if (outcome == oxml::CompactTree::kNotHeld && text != bytes)
        fail("changed the text it didn't take", "");
    if (outcome != oxml::CompactTree::kBuilt)
        return 0;

    const WorkDir& w = work();
    const std::string doctype = compact_sameness::with_doctype(bytes);
    if (!Ostrel::FileSystem::WriteBinaryFile(w.plain.c_str(), bytes.data(), bytes.size()) ||
        !Ostrel::FileSystem::WriteBinaryFile(w.doctype.c_str(), doctype.data(), doctype.size()))
        return 0;
    std::unique_ptr<COXMLDocument> parsed(COXMLDocument::load(w.plain.c_str(), nullptr, nullptr, 0));
    if (!parsed)
        fail("took a text the parser refuses", "");
    const std::string difference = compact_sameness::tree_difference(tree, *parsed);
    if (!difference.empty())
        fail("differs from the parser in", difference);

    // Records without a date take the time of reading; compared when the clock stood still.
    const std::string compact = open_read_only(w.plain_windows);
    const std::string through_parser = open_read_only(w.doctype_windows);
    if (compact != through_parser && open_read_only(w.plain_windows) == compact)
        fail("opens a vellument unlike the parser:", compact + "\n---\n" + through_parser);
    return 0;
}
