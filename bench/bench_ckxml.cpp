// Parsing speed of the toolkit XML tree against pugixml on the same 20 MB replies: one shaped
// like a status document (many small elements with attributes) and one like a downloaded
// vellument (one large escaped text). Goal: the structured parse takes at most twice pugixml's.
//
// Both parsers build a tree of tens of megabytes. Whether its pages are fresh from the kernel or
// left warm by the run before depends on the allocator's trimming and on which benchmark ran
// first, and on a busy machine the page faults can cost more than the parse. So each parse runs
// twice: "Warm", with the allocator told to keep freed memory, which measures the parser's own
// work; and "Cold", with all free memory handed back to the kernel before every iteration.
#include <benchmark/benchmark.h>

#include <climits>
#include <cstdio>
#include <string>

#include <pugixml.hpp>

#include <vellument/CkXml.h>

#include "bench_memory.h"

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

void ckxmlParse(benchmark::State& state, const std::string& text, Memory memory)
{
    for (auto _ : state) {
        releaseFreeMemory(state, memory);
        CkXml xml;
        bool ok = xml.LoadXml(text.c_str());
        benchmark::DoNotOptimize(ok);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void pugixmlParse(benchmark::State& state, const std::string& text, Memory memory)
{
    for (auto _ : state) {
        releaseFreeMemory(state, memory);
        pugi::xml_document doc;
        pugi::xml_parse_result result = doc.load_buffer(text.data(), text.size());
        benchmark::DoNotOptimize(result);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(text.size()));
}

void BM_CkXml_Structured_Warm(benchmark::State& state) { ckxmlParse(state, structuredReply(), kWarm); }
void BM_Pugixml_Structured_Warm(benchmark::State& state) { pugixmlParse(state, structuredReply(), kWarm); }
void BM_CkXml_Structured_Cold(benchmark::State& state) { ckxmlParse(state, structuredReply(), kCold); }
void BM_Pugixml_Structured_Cold(benchmark::State& state) { pugixmlParse(state, structuredReply(), kCold); }
void BM_CkXml_EscapedText(benchmark::State& state) { ckxmlParse(state, escapedReply(), kWarm); }
void BM_Pugixml_EscapedText(benchmark::State& state) { pugixmlParse(state, escapedReply(), kWarm); }

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

BENCHMARK(BM_CkXml_Structured_Warm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pugixml_Structured_Warm)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CkXml_Structured_Cold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pugixml_Structured_Cold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CkXml_EscapedText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pugixml_EscapedText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CkXml_GetXml)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // Freed memory stays with the process, as it does in a long-running client; the cold
    // benchmarks hand it back themselves.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
