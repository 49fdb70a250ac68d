// Opening and saving a large vellument, beside pugixml alone parsing and writing the same file.
//   bench_vellument --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
// Goals: a read-only open within 2.5 times the parse, at the size of the fixture and at four times
// it; save (write, backup, hash, read-back) within 3 times parse plus write; the peak memory of a
// read-only open within 3 times the file's size.

#include <benchmark/benchmark.h>
#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>

#include "large_vellument.h"

namespace {

using large_vellument::Fixture;
using large_vellument::fixture;

void parse_with_pugixml(benchmark::State& state, const std::string& disk_file)
{
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_file(disk_file.c_str()))
            state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(doc.first_child());
    }
    state.counters["bytes"] = static_cast<double>(std::filesystem::file_size(disk_file));
}

void BM_PugixmlParse(benchmark::State& state)
{
    parse_with_pugixml(state, fixture().disk_file);
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

void open_read_only(benchmark::State& state, const std::string& vellument)
{
    for (auto _ : state) {
        CVellument v;
        v.open(vellument.c_str(), "", "", "", false, true);
        benchmark::DoNotOptimize(v.get_transaction_count());
    }
}

void BM_VellumentOpenReadOnly(benchmark::State& state)
{
    open_read_only(state, fixture().vellument);
}
BENCHMARK(BM_VellumentOpenReadOnly)->Unit(benchmark::kMillisecond);

// Write (atomic, synced), backup copy, MD5, settings write, the read-back open, and the upload:
// the fixture holds e-filed copies, so each save builds the upload request before the loopback
// port it is aimed at refuses the connection.
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

// --- Four times the size ---------------------------------------------------------------------

struct LargerFile {
    std::string vellument;  // Windows form
    std::string disk_file;
};

// The same trail four times over, in a company folder of its own beside the first.
const LargerFile& four_times()
{
    static LargerFile* made = [] {
        auto* file = new LargerFile;
        const std::string company = fixture().root + "/Co4";
        std::filesystem::create_directories(company + "/Histories");
        file->disk_file = company + "/Histories/VELLUMENT_W2_2021.VLM";
        file->vellument = Ostrel::FileSystem::ToWindowsPath(company.c_str()) + "\\HISTORIES\\VELLUMENT_W2_2021.VLM";
        CVellument v;
        v.open(file->vellument.c_str(), "12-3456789", "2021", "VND", false, true);
        v.set_form_type_string("W-2_SSA");
        for (int i = 0; i < 4; ++i) {
            if (i > 0)
                v.clear_current_status();
            large_vellument::fill(v);
        }
        if (v.save(nullptr) == 0)
            std::abort();
        return file;
    }();
    return *made;
}

void BM_PugixmlParse4x(benchmark::State& state)
{
    parse_with_pugixml(state, four_times().disk_file);
}
BENCHMARK(BM_PugixmlParse4x)->Unit(benchmark::kMillisecond);

void BM_VellumentOpenReadOnly4x(benchmark::State& state)
{
    open_read_only(state, four_times().vellument);
}
BENCHMARK(BM_VellumentOpenReadOnly4x)->Unit(benchmark::kMillisecond);

// --- Peak memory -----------------------------------------------------------------------------
// Measured in a fresh run of this program (a forked one would reuse the freed memory of the
// fixture and show no growth): "--peak-of pugixml FILE" or "--peak-of open FILE" prints what the
// operation adds to the peak resident size, in KiB.

long status_kb(const char* field)
{
    std::FILE* status = std::fopen("/proc/self/status", "r");
    long kb = -1;
    char line[256];
    while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr)
        if (std::strncmp(line, field, std::strlen(field)) == 0)
            kb = std::atol(line + std::strlen(field));
    if (status != nullptr)
        std::fclose(status);
    return kb;
}

int print_peak_of(const std::string& what, const std::string& file)
{
    Ostrel::Log::SetLevel(1);
    std::FILE* reset = std::fopen("/proc/self/clear_refs", "w");
    if (reset == nullptr || std::fputs("5", reset) < 0 || std::fclose(reset) != 0)
        return 1;
    const long before = status_kb("VmRSS:");
    if (what == "pugixml") {
        pugi::xml_document doc;
        if (!doc.load_file(file.c_str()))
            return 1;
    } else {
        CVellument v;
        v.open(file.c_str(), "", "", "", false, true);
        if (v.get_transaction_count() == 0)
            return 1;
    }
    std::printf("%ld\n", status_kb("VmHWM:") - before);
    return 0;
}

// Counters: the peak added, and that over the file's size. Goal for the read-only open: at most
// 3 times the file (pugixml's load_file is the reference).
void measure_peak(benchmark::State& state, const char* what, const std::string& argument)
{
    Fixture& f = fixture();
    long kb = -1;
    for (auto _ : state) {
        const std::string command = std::filesystem::read_symlink("/proc/self/exe").string() + " --peak-of " + what +
                                    " '" + argument + "'";
        std::FILE* child = popen(command.c_str(), "r");
        if (child == nullptr || std::fscanf(child, "%ld", &kb) != 1)
            kb = -1;
        if (child != nullptr && pclose(child) != 0)
            kb = -1;
    }
    if (kb < 0) {
        state.SkipWithError("peak resident size not measurable here");
        return;
    }
    state.counters["peak_MiB"] = static_cast<double>(kb) / 1024;
    state.counters["peak/file"] = static_cast<double>(kb) * 1024 / static_cast<double>(std::filesystem::file_size(f.disk_file));
}

void BM_PeakMemoryPugixmlParse(benchmark::State& state)
{
    measure_peak(state, "pugixml", fixture().disk_file);
}
BENCHMARK(BM_PeakMemoryPugixmlParse)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_PeakMemoryOpenReadOnly(benchmark::State& state)
{
    measure_peak(state, "open", fixture().vellument);
}
BENCHMARK(BM_PeakMemoryOpenReadOnly)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "--peak-of") == 0)
        return print_peak_of(argv[2], argv[3]);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
