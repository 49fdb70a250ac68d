// The filing service client: the hash request against the stand-in service beside libcurl posting
// the same envelope, and the upload of the large vellument with its text preparation timed apart
// beside pugixml parsing and printing the same file.
//   bench_soap --benchmark_min_time=1
// Goals: hash round trip within 1.15 times libcurl's; upload text within 2 times pugixml.
//
// The upload text passes some 50 MB through memory (the file, the request it is written into).
// Run after run the allocator hands the same pages back; a save makes the text once, often in
// pages fresh from the kernel. So the text and its baseline are also timed "Cold", with all free
// memory given back before every iteration.

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <vellument/CVellument.h>
#include <vellument/Ostrel_FileSystem.h>
#include <vellument/Ostrel_Log.h>
#include <vellument/eFileSOAPS.h>

#include "Vellument/eFileSOAPS_upload.h"
#include "Vellument/eFileSOAPS_wire.h"
#include "bench_memory.h"
#include "large_vellument.h"
#include "tests/filing_service_fixture.h"

namespace {

const char kEin[] = "123456789";
const char kHash[] = "5d41402abc4b2a76b9719d911017c592";

// The stand-in service, started once with a vellument stored for kEin, and a private local
// application data directory whose Settings.ini points the library at it. Null when the service
// wasn't built.
vlmtest::FilingService* service()
{
    static vlmtest::FilingService* s = []() -> vlmtest::FilingService* {
        if (!vlmtest::FilingService::available())
            return nullptr;
        std::string appdata = std::filesystem::temp_directory_path().string() + "/vlm-bench-appdata-XXXXXX";
        if (mkdtemp(appdata.data()) == nullptr)
            std::abort();
        setenv("VELLUMENT_APPDATA", appdata.c_str(), 1);
        // The large vellument's request is some 30 MB, past the service's default limit.
        auto* made = new vlmtest::FilingService({"--max-body", std::to_string(std::size_t(256) << 20)});
        made->write_settings(appdata);
        const std::string file = appdata + "/small.VLM";
        std::FILE* f = std::fopen(file.c_str(), "wb");
        std::fputs("<AuditTrail FormType=\"W-2_SSA\"><Transaction Action=\"Filing\"/></AuditTrail>", f);
        std::fclose(f);
        int error = 99;
        eFileSOAPS::StoreVellument(kEin, "W2", "2024", kHash, file.c_str(), error);
        if (error != 0)
            std::abort();
        static std::string dir = appdata;
        std::atexit([] {
            delete service();
            std::error_code ec;
            std::filesystem::remove_all(dir, ec);
        });
        return made;
    }();
    return s;
}

const large_vellument::Fixture& fixture()
{
    Ostrel::Log::SetLevel(1);
    return large_vellument::fixture();
}

// Parse and print to memory: the least any re-emission of the file costs.
void pugixmlParsePrint(benchmark::State& state, Memory memory)
{
    const large_vellument::Fixture& f = fixture();
    for (auto _ : state) {
        releaseFreeMemory(state, memory);
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
void BM_PugixmlParsePrint(benchmark::State& state) { pugixmlParsePrint(state, kWarm); }
void BM_PugixmlParsePrint_Cold(benchmark::State& state) { pugixmlParsePrint(state, kCold); }
BENCHMARK(BM_PugixmlParsePrint)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PugixmlParsePrint_Cold)->Unit(benchmark::kMillisecond);

// StoreVellument's work before the send: the file re-emitted without declaration and
// entity-encoded, in its place in the request.
void uploadText(benchmark::State& state, Memory memory)
{
    const large_vellument::Fixture& f = fixture();
    for (auto _ : state) {
        releaseFreeMemory(state, memory);
        std::string head;
        std::string tail;
        SoapWire::envelope_parts("StoreVellument", kEin, "W2", "2021", kHash, true, head, tail);
        SoapUpload::Request request;
        request.append(head.data(), head.size());
        bool ascii = false;
        if (!SoapWire::upload_text(f.vellument.c_str(), request, ascii))
            state.SkipWithError("load failed");
        request.append(tail.data(), tail.size());
        benchmark::DoNotOptimize(request.data());
    }
}
void BM_UploadText(benchmark::State& state) { uploadText(state, kWarm); }
void BM_UploadText_Cold(benchmark::State& state) { uploadText(state, kCold); }
BENCHMARK(BM_UploadText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UploadText_Cold)->Unit(benchmark::kMillisecond);

// The whole hash request: envelope, settings read, a new connection with its TLS handshake, the
// reply read through the toolkit tree.
void BM_HashRoundTrip_Client(benchmark::State& state)
{
    if (service() == nullptr) {
        state.SkipWithError("the stand-in filing service was not built");
        return;
    }
    for (auto _ : state) {
        int error = 99;
        if (eFileSOAPS::get_vellument_hash(kEin, "W2", "2024", error) != kHash || error != 0)
            state.SkipWithError("wrong answer");
    }
}
BENCHMARK(BM_HashRoundTrip_Client)->Unit(benchmark::kMicrosecond)->UseRealTime();

size_t collect(char* data, size_t size, size_t count, void* out)
{
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

// libcurl posting the same envelope with the same two headers, also on a new connection each
// time (a new handle has no connection or TLS session to reuse).
void BM_HashRoundTrip_Curl(benchmark::State& state)
{
    vlmtest::FilingService* s = service();
    if (s == nullptr) {
        state.SkipWithError("the stand-in filing service was not built");
        return;
    }
    const std::string request = SoapWire::envelope("GetVellumentHash", kEin, "W2", "2024");
    const std::string action = std::string("SOAPAction: ") + service_namespace + "GetVellumentHash";
    for (auto _ : state) {
        CURL* curl = curl_easy_init();
        curl_slist* headers = curl_slist_append(nullptr, action.c_str());
        headers = curl_slist_append(headers, "Content-Type: text/xml; charset=utf-8");
        std::string body;
        curl_easy_setopt(curl, CURLOPT_URL, s->url().c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.size()));
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &body);
        if (curl_easy_perform(curl) != CURLE_OK || body.find(kHash) == std::string::npos)
            state.SkipWithError("curl failed");
        curl_slist_free_all(headers);
        curl_easy_cleanup(curl);
    }
}
BENCHMARK(BM_HashRoundTrip_Curl)->Unit(benchmark::kMicrosecond)->UseRealTime();

// The whole upload of the large vellument, the service storing it.
void BM_StoreVellument(benchmark::State& state)
{
    const large_vellument::Fixture& f = fixture();
    if (service() == nullptr) {
        state.SkipWithError("the stand-in filing service was not built");
        return;
    }
    for (auto _ : state) {
        int error = 99;
        eFileSOAPS::StoreVellument(kEin, "W2", "2021", kHash, f.vellument.c_str(), error);
        if (error != 0)
            state.SkipWithError("upload failed");
    }
}
BENCHMARK(BM_StoreVellument)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace

BENCHMARK_MAIN();
