// The filing service client: the hash request against the stand-in service beside libcurl posting
// the same envelope, and the upload of the large vellument with its text preparation timed apart
// beside pugixml parsing and printing the same file.
//   bench_soap --benchmark_min_time=1
// Goals: hash round trip within 1.15 times libcurl's; upload text within 2 times pugixml.

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <vellument/CVellument.h>
#include <vellument/CkString.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>

#include "Vellument/eFileSOAPS_wire.h"
#include "large_vellument.h"

namespace {

struct Fixture {
    std::string root;      // disk directory, removed at exit
    std::string vellument; // Windows form
    std::string disk_file; // disk form of the same file
};

Fixture& fixture()
{
    static Fixture* f = [] {
        Ostrel::Log::SetLevel(1);
        auto* made = new Fixture;
        made->root = large_vellument::make_scratch_company();
        made->disk_file = made->root + "/Co/Histories/VELLUMENT_W2_2021.VLM";
        const std::string company = Ostrel::FileSystem::ToWindowsPath((made->root + "/Co").c_str());
        made->vellument = company + "\\HISTORIES\\VELLUMENT_W2_2021.VLM";
        CVellument v;
        v.open(made->vellument.c_str(), "12-3456789", "2021", "VND", false, true);
        v.set_form_type_string("W-2_SSA");
        large_vellument::fill(v);
        if (v.save(nullptr) == 0)
            std::abort();
        std::atexit([] {
            std::error_code ec;
            std::filesystem::remove_all(fixture().root, ec);
        });
        return made;
    }();
    return *f;
}

// Parse and print to memory: the least any re-emission of the file costs.
void BM_PugixmlParsePrint(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_file(f.disk_file.c_str()))
            state.SkipWithError("parse failed");
        struct Sink : pugi::xml_writer {
            std::string text;
            void write(const void* data, size_t size) override { text.append(static_cast<const char*>(data), size); }
        } sink;
        doc.save(sink, "    ", pugi::format_indent | pugi::format_no_declaration);
        benchmark::DoNotOptimize(sink.text.data());
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(f.disk_file));
}
BENCHMARK(BM_PugixmlParsePrint)->Unit(benchmark::kMillisecond);

// Load, re-emit without declaration, entity-encode.
void BM_UploadText(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        CkString text;
        if (!SoapWire::upload_text(f.vellument.c_str(), text))
            state.SkipWithError("load failed");
        benchmark::DoNotOptimize(text.getString());
    }
}
BENCHMARK(BM_UploadText)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
