// Parsing speed of the toolkit XML tree against pugixml on the same 20 MB replies: one shaped
// like a status document (many small elements with attributes) and one like a downloaded
// vellument (one large escaped text).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include <pugixml.hpp>

#include <vellument/CkXml.h>

namespace {

const std::size_t kReplySize = 20u << 20;

const char kHead[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
    "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\">\r\n<soap:Body>\r\n";
const char kTail[] = "</soap:Body>\r\n</soap:Envelope>\r\n";

const std::string& structuredReply()
{
    static const std::string text = [] {
        std::string s = kHead;
        s += "<GetSubmissionStatusResponse xmlns=\"urn:vellument\">\r\n<SubmissionStatus EIN=\"123456789\" Year=\"2024\">\r\n";
        char line[512];
        for (int i = 0; s.size() < kReplySize; ++i) {
            std::snprintf(line, sizeof line,
                          "  <Copy CopyType=\"%s\" Vlid=\"%d\" CopyCode=\"C%08d\" IsDeleted=\"False\" IsReplaceable=\"True\">\r\n"
                          "    <History Date=\"01/%02d/2024 10:%02d:00\" Action=\"Printed\">Printed &amp; mailed</History>\r\n"
                          "    <Note>Recipient %d: Jos&#233; &lt;ok&gt;</Note>\r\n"
                          "  </Copy>\r\n",
                          (i % 4 == 0) ? "FED" : (i % 4 == 1) ? "STATE" : (i % 4 == 2) ? "LOCAL" : "EMP", i, i,
                          i % 28 + 1, i % 60, i);
            s += line;
        }
        s += "</SubmissionStatus>\r\n</GetSubmissionStatusResponse>\r\n";
        s += kTail;
        return s;
    }();
    return text;
}

const std::string& escapedReply()
{
    static const std::string text = [] {
        std::string s = kHead;
        s += "<GetVellumentResponse xmlns=\"urn:vellument\"><fileText>";
        const std::string chunk =
            "&lt;Form FormType=&quot;W2&quot; Amount=&quot;1234.56&quot; Name=&quot;Smith &amp; Sons&quot;/&gt;\r\n";
        while (s.size() < kReplySize)
            s += chunk;
        s += "</fileText></GetVellumentResponse>";
        s += kTail;
        return s;
    }();
    return text;
}

void ckxmlParse(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        CkXml xml;
        bool ok = xml.LoadXml(text.c_str());
        benchmark::DoNotOptimize(ok);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void pugixmlParse(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        pugi::xml_document doc;
        pugi::xml_parse_result result = doc.load_buffer(text.data(), text.size());
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void BM_CkXml_Structured(benchmark::State& state) { ckxmlParse(state, structuredReply()); }
void BM_Pugixml_Structured(benchmark::State& state) { pugixmlParse(state, structuredReply()); }
void BM_CkXml_EscapedText(benchmark::State& state) { ckxmlParse(state, escapedReply()); }
void BM_Pugixml_EscapedText(benchmark::State& state) { pugixmlParse(state, escapedReply()); }

// Writing the parsed structured reply back out as text.
void BM_CkXml_GetXml(benchmark::State& state)
{
    CkXml xml;
    xml.LoadXml(structuredReply().c_str());
    std::size_t size = 0;
    for (auto _ : state) {
        const char* text = xml.GetXml();
        size = std::char_traits<char>::length(text);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

} // namespace

BENCHMARK(BM_CkXml_Structured)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pugixml_Structured)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CkXml_EscapedText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pugixml_EscapedText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CkXml_GetXml)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
