// Feeds bytes to the toolkit XML tree: as text to the parser, then through the text form, the
// path language and the bridge to the document interface; and as file bytes to the conversion.
// The upload text made straight from the bytes must be the tree's, or not be made at all.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <vellument/CkString.h>
#include <vellument/CkXml.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/Ostrel_XML.h>

#include "Vellument/eFileSOAPS_upload.h"
#include "toolkit/CkXmlDocument.h"
#include "toolkit/CkXml_Convert.h"

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

// The upload text of file bytes straight from them, when they are plain, against the tree's:
// what LoadXmlFile does with bytes (converted to UTF-8, then parsed), written and encoded.
void checkPlainUploadText(const std::string& bytes)
{
    SoapUpload::Request request;
    request.append("<", 1);
    if (!SoapUpload::append_plain_text(bytes.data(), bytes.size(), request)) {
        check(request.size() == 1);
        return;
    }
    const std::string utf8 = convertXmlToUtf8(bytes.data(), bytes.size());
    check(utf8 == bytes);
    CkXml xml;
    xml.put_EmitDeclaration(false);
    check(xml.LoadXml(utf8.c_str()));
    CkString text;
    text.Append(xml.GetXml());
    text.EntityEncode();
    const std::string tree(text.GetString(), static_cast<std::size_t>(text.getSizeAnsi()));
    check(request.size() == 1 + tree.size() && std::memcmp(request.data() + 1, tree.data(), tree.size()) == 0);
}

const char* const kPaths[] = {"a", "*:b[1]", "[0]|++|--", "..", "/T/a", "/C/a,x", "/A/a,b,c", "a[i]|b{x}", "0|1|2", "a|"};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool quiet = [] {
        Ostrel::Log::SetLevel(0);
        return true;
    }();
    (void)quiet;

    const std::string bytes(reinterpret_cast<const char*>(data), size);
    convertXmlToUtf8(bytes.data(), bytes.size());
    checkPlainUploadText(bytes);

    // The first line doubles as a path, so the path language sees arbitrary text too.
    const std::size_t newline = bytes.find('\n');
    const std::string path = bytes.substr(0, newline == std::string::npos ? 0 : std::min<std::size_t>(newline, 64));

    CkXml xml;
    const std::string text = bytes.c_str();  // the interface takes zero-terminated text
    const bool loaded = xml.LoadXml(text.c_str());
    if (text.empty())
        check(!loaded);
    else if (text.find('<') != std::string::npos)
        check(loaded);
    xml.put_I(1);
    check(xml.GetXml() != nullptr);
    for (const char* p : kPaths)
        xml.GetChildContent(p);
    xml.GetChildContent(path.c_str());
    if (path.size() < 24) {
        std::unique_ptr<CkXml> child(xml.NewChild(path.c_str(), "c&<>"));
        if (child)
            check(child->GetXml() != nullptr);
    }
    xml.put_EmitCompact(true);
    check(xml.GetXml() != nullptr);
    check(xml.lastErrorText() != nullptr);

    // Whatever the forgiving parser let in, the document interface must get well-formed XML.
    COXMLDocument* document = ckxml_to_document(xml.GetSelf());
    check(document != nullptr);
    delete document;
    return 0;
}
