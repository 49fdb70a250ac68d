// Opening and saving a large vellument, beside pugixml alone parsing and writing the same file.
//   bench_vellument --benchmark_min_time=1
// Goals: open within 3 times the parse; save (write, backup, hash, read-back) within 5 times
// parse plus write.

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>

#include "large_vellument.h"

namespace {

struct Fixture {
    std::string root;        // disk directory, removed at exit
    std::string vellument;   // Windows form
    std::string disk_file;   // disk form of the same file
    std::string pugi_output; // where pugixml writes its copy
};

Fixture& fixture()
{
    static Fixture* f = [] {
        Ostrel::Log::SetLevel(1);
        const large_vellument::SavedVellument& saved = large_vellument::saved();
        return new Fixture{saved.root, saved.vellument, saved.disk_file, saved.root + "/pugi.xml"};
    }();
    return *f;
}

void BM_PugixmlParse(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_file(f.disk_file.c_str()))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc.first_child());
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(f.disk_file));
}
BENCHMARK(BM_PugixmlParse)->Unit(benchmark::kMillisecond);

void BM_PugixmlParseWrite(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_file(f.disk_file.c_str()) || !doc.save_file(f.pugi_output.c_str(), "\t", pugi::format_indent))
            state.SkipWithError("parse or write failed");
    }
}
BENCHMARK(BM_PugixmlParseWrite)->Unit(benchmark::kMillisecond);

// The ordinary open: hash check against the settings file, then the records.
void BM_VellumentOpen(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        CVellument v;
        v.open(f.vellument.c_str(), "", "", "", false, false);
        if (v.get_transaction_count() != large_vellument::kTransactions)
            state.SkipWithError("unexpected trail");
    }
}
BENCHMARK(BM_VellumentOpen)->Unit(benchmark::kMillisecond);

void BM_VellumentOpenReadOnly(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        CVellument v;
        v.open(f.vellument.c_str(), "", "", "", false, true);
        benchmark::DoNotOptimize(v.get_transaction_count());
    }
}
BENCHMARK(BM_VellumentOpenReadOnly)->Unit(benchmark::kMillisecond);

// Write (atomic, synced), backup copy, MD5, settings write and the read-back open.
void BM_VellumentSave(benchmark::State& state)
{
    Fixture& f = fixture();
    CVellument v;
    v.open(f.vellument.c_str(), "", "", "", false, true);
    for (auto _ : state) {
        if (v.save(nullptr) == 0)
            state.SkipWithError("save failed");
    }
}
BENCHMARK(BM_VellumentSave)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
