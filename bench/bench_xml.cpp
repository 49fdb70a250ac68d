// The XML document's loader beside pugixml alone on the same large vellument file, and the
// writing of one element with many attributes.
//   bench_xml --benchmark_min_time=1
// Goals: loading within 10% of what it cost before it checked well-formedness; writing an
// element's attributes linear in their number.

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <filesystem>
#include <memory>
#include <string>

#include <vellument/Ostrel_XML.h>

#include "large_vellument.h"

namespace {

void BM_PugixmlLoadFile(benchmark::State& state)
{
    const large_vellument::Fixture& f = large_vellument::fixture();
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_file(f.disk_file.c_str()))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc.first_child());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(f.disk_file)));
}
BENCHMARK(BM_PugixmlLoadFile)->Unit(benchmark::kMillisecond);

void BM_DocumentLoad(benchmark::State& state)
{
    const large_vellument::Fixture& f = large_vellument::fixture();
    const std::string path = large_vellument::fixture().vellument;
    for (auto _ : state) {
        std::unique_ptr<COXMLDocument> doc(COXMLDocument::load(path.c_str(), nullptr, nullptr, 0));
        if (!doc)
            state.SkipWithError("load failed");
        benchmark::DoNotOptimize(doc.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(std::filesystem::file_size(f.disk_file)));
}
BENCHMARK(BM_DocumentLoad)->Unit(benchmark::kMillisecond);

// One element with state.range(0) attributes, set as a dictionary's writer sets them.
void BM_SetAttributes(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
        names.push_back("Key" + std::to_string(i));
    for (auto _ : state) {
        std::unique_ptr<COXMLDocument> doc(COXMLDocument::createDocument());
        COXMLNode* element = doc->appendChild(doc->createElement("Dictionary"), true);
        for (const std::string& name : names)
            element->setAttribute(name.c_str(), "value");
        benchmark::DoNotOptimize(element->getAttribute("Key0"));
    }
    state.SetComplexityN(count);
}
BENCHMARK(BM_SetAttributes)->Arg(1000)->Arg(10000)->Arg(25000)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
