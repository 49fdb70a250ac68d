// One HTTPS POST with CkHttp against the same POST with libcurl, to the same local TLS server,
// on a new connection each time: a 2 KB SOAP envelope with a small reply, and a 20 MB body with
// a 20 MB reply. The server runs in a child process, so that the memory figures are the client's.
//
//   build/bench/bench_http                   the timings
//   build/bench/bench_http --peak=ckhttp     peak memory of one large exchange (also --peak=curl)
#include <benchmark/benchmark.h>

#include <curl/curl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <vellument/CkHttp.h>
#include <vellument/CkHttpResponse.h>

#include "../tests/http_script_server.h"

namespace {

const std::size_t kLargeSize = 20u << 20;
const char* const kAction = "\"https://efile.filing-service.example/StoreVellument\"";

int g_smallPort = 0;
int g_largePort = 0;

std::string envelope(std::size_t size)
{
    std::string s = "<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/"
                    "soap/envelope/\"><soap:Body><StoreVellument xmlns=\"https://efile.filing-service.example/\">"
                    "<fileText>";
    const std::string tail = "</fileText></StoreVellument></soap:Body></soap:Envelope>";
    while (s.size() + tail.size() < size)
        s += "&lt;Transaction Action=&quot;Printed&quot; Date=&quot;01/15/2025 10:00:00&quot;/&gt;\r\n";
    s.resize(size - tail.size(), ' ');
    return s + tail;
}

std::string reply(const std::string& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string url(int port)
{
    return "https://127.0.0.1:" + std::to_string(port) + "/supportservices.asmx";
}

std::size_t ckhttpPost(const std::string& target, const std::string& body)
{
    CkHttp http;
    http.SetRequestHeader("Content-Type", "text/xml; charset=utf-8");
    http.SetRequestHeader("SOAPAction", kAction);
    std::unique_ptr<CkHttpResponse> response(http.PostXml(target.c_str(), body.c_str(), "utf-8"));
    if (!response || !http.LastCallSucceeded())
        return 0;
    return std::strlen(response->BodyStr());
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* out)
{
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

std::size_t curlPost(const std::string& target, const std::string& body)
{
    CURL* curl = curl_easy_init();
    curl_slist* headers = nullptr;
    headers = curl_slist_append(headers, "Content-Type: text/xml; charset=utf-8");
    headers = curl_slist_append(headers, (std::string("SOAPAction: ") + kAction).c_str());
    headers = curl_slist_append(headers, "Expect:");
    std::string received;
    curl_easy_setopt(curl, CURLOPT_URL, target.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_ACCEPT_ENCODING, "gzip");
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &received);
    CURLcode rc = curl_easy_perform(curl);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return rc == CURLE_OK ? received.size() : 0;
}

template <std::size_t (*Post)(const std::string&, const std::string&)>
void run(benchmark::State& state, int port, std::size_t size)
{
    const std::string body = envelope(size);
    const std::string target = url(port);
    for (auto _ : state) {
        std::size_t n = Post(target, body);
        if (n == 0) {
            state.SkipWithError("the exchange failed");
            return;
        }
        benchmark::DoNotOptimize(n);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
}

void BM_Small_CkHttp(benchmark::State& state) { run<ckhttpPost>(state, g_smallPort, 2048); }
void BM_Small_Curl(benchmark::State& state) { run<curlPost>(state, g_smallPort, 2048); }
void BM_Large_CkHttp(benchmark::State& state) { run<ckhttpPost>(state, g_largePort, kLargeSize); }
void BM_Large_Curl(benchmark::State& state) { run<curlPost>(state, g_largePort, kLargeSize); }

BENCHMARK(BM_Small_CkHttp)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Small_Curl)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Large_CkHttp)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Large_Curl)->Unit(benchmark::kMillisecond)->UseRealTime();

// A line of /proc/self/status in KB: "VmRSS" now, "VmHWM" the peak since resetPeak.
long statusKb(const char* field)
{
    FILE* f = std::fopen("/proc/self/status", "r");
    char line[256];
    long kb = -1;
    const std::size_t n = std::strlen(field);
    while (f != nullptr && std::fgets(line, sizeof line, f) != nullptr)
        if (std::strncmp(line, field, n) == 0 && line[n] == ':')
            kb = std::atol(line + n + 1);
    if (f != nullptr)
        std::fclose(f);
    return kb;
}

void resetPeak()
{
    FILE* f = std::fopen("/proc/self/clear_refs", "w");
    if (f != nullptr) {
        std::fputs("5", f);
        std::fclose(f);
    }
}

// The servers live in a child; it writes their ports and goes when the parent's pipe closes.
pid_t startServers()
{
    int ports[2];
    int alive[2];
    if (pipe(ports) != 0 || pipe(alive) != 0)
        return -1;
    pid_t child = fork();
    if (child == 0) {
        close(ports[0]);
        close(alive[1]);
        httptest::ServerOptions options;
        options.tls = true;
        options.repeatLast = true;
        options.record = false;
        httptest::ScriptServer small({reply(envelope(600))}, options);
        httptest::ScriptServer large({reply(envelope(kLargeSize))}, options);
        int numbers[2] = {small.port(), large.port()};
        if (write(ports[1], numbers, sizeof numbers) != sizeof numbers)
            _exit(1);
        char byte;
        while (read(alive[0], &byte, 1) > 0) {
        }
        _exit(0);
    }
    close(ports[1]);
    close(alive[0]);
    int numbers[2] = {0, 0};
    if (read(ports[0], numbers, sizeof numbers) != sizeof numbers)
        return -1;
    close(ports[0]);
    g_smallPort = numbers[0];
    g_largePort = numbers[1];
    return child;
}

} // namespace

int main(int argc, char** argv)
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
    pid_t server = startServers();
    if (server < 0) {
        std::fprintf(stderr, "bench_http: the servers did not start\n");
        return 1;
    }
    int rc = 0;
    if (argc == 2 && std::strncmp(argv[1], "--peak=", 7) == 0) {
        const bool curl = std::strcmp(argv[1] + 7, "curl") == 0;
        const std::string body = envelope(kLargeSize);
        resetPeak();
        const long before = statusKb("VmRSS");
        std::size_t n = curl ? curlPost(url(g_largePort), body) : ckhttpPost(url(g_largePort), body);
        const long peak = statusKb("VmHWM");
        std::printf("%s: reply %zu bytes; RSS %ld KB before (the 20 MB body included), peak %ld KB during: "
                    "+%.1f MB, %.2fx the body\n",
                    curl ? "libcurl" : "CkHttp", n, before, peak, (peak - before) / 1024.0,
                    (peak - before) * 1024.0 / kLargeSize);
        rc = n == 0;
    } else {
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
    }
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
    curl_global_cleanup();
    return rc;
}
