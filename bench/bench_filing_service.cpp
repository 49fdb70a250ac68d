// Load run of the stand-in filing service (not a test): 16 clients at once send 2,000 mixed
// requests over HTTPS, one connection per request as the library's client does it (stores of
// 200 KB texts, downloads, hashes, statuses). Afterwards every acknowledged store must be in the
// service's database with its hash and text, and the latest one must answer. Reports throughput,
// p50 and p99 latency per operation and the server's peak memory, beside a baseline: the same
// requests against a bare HTTPS server (same library, same certificate) that answers each
// operation with a fixed reply, so the ratio is what storage and SOAP handling cost.
//   bench_filing_service [clients] [requests]
// Goal: nothing lost; p99 under 100 ms for hash and status.

#include <openssl/evp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <httplib.h>

#include "tests/company_fixture.h"
#include "tests/filing_service_fixture.h"

namespace {

const char kNamespace[] = VELLUMENT_BENCH_SERVICE_NAMESPACE;
const char kAccessKey[] = "QXTR4-LMZ82-HBVNC-WPJK6-3DGAF";
const char* const kOps[4] = {"StoreVellument", "GetVellument", "GetVellumentHash", "GetSubmissionStatus"};

std::string envelope(const std::string& op, const std::string& ein, const std::string& extra = "")
{
    const auto param = [](const char* name, const std::string& value) {
        return std::string("<m:") + name + " xsi:type=\"xsd:string\">" + value + "</m:" + name + ">";
    };
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><SOAP-ENV:Envelope "
           "xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\" "
           "SOAP-ENV:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"><SOAP-ENV:Body><m:" +
           op + " xmlns:m=\"" + kNamespace + "\">" + param("accessKey", kAccessKey) + param("ein", ein) +
           param("formName", "W2") + param("year", "2025") + extra + "</m:" + op + "></SOAP-ENV:Body></SOAP-ENV:Envelope>";
}

// A vellument text of about 200 KB, different for each store, with an e-filed copy; the
// characters that the client turns into entities are there too.
std::string vellument_text(int client, int serial)
{
    std::string text = "<AuditTrail Version=\"200\" FilingEIN=\"" + std::to_string(client) + "\">";
    for (int t = 0; text.size() < 200 * 1024; ++t)
        text += "<Transaction Action=\"Filing\"><Package KXNPath=\"C:\\Caf\xC3\xA9\\" + std::to_string(serial) +
                "\" FilingChoice=\"Federal &amp; State\" EmployeeCount=\"" + std::to_string(t) +
                "\"/><Status><Copy Type=\"Federal\" Identifier=\"FE\" VLID=\"" + std::to_string(t) +
                "\" Efiled=\"true\" Replaceable=\"true\" Deleted=\"false\"/></Status></Transaction>";
    return text + "</AuditTrail>";
}

// The client's upload encoding of a UTF-8 text with these characters.
std::string upload_encoding(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '&') out += "&amp;";
        else if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '"') out += "&quot;";
        else if (c == '\xC3' && i + 1 < text.size() && text[i + 1] == '\xA9') out += "&eacute;", ++i;
        else out += c;
    }
    return out;
}

struct Sample {
    int op;
    double ms;
};

struct Run {
    std::vector<Sample> samples;
    double seconds = 0;
    int failures = 0;
    // Per filing (EIN), the hashes of the acknowledged stores in order, and their texts' MD5.
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> stored;
};

// `clients` threads share `requests`; client c uses the EINs of its own, so that its stores to one
// filing are in order and the last acknowledged one must be the one that answers.
Run load(int port, int clients, int requests)
{
    Run run;
    std::mutex mutex;
    std::atomic<int> next{0};
    const auto started = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            httplib::Client http("https://127.0.0.1:" + std::to_string(port));
            http.enable_server_certificate_verification(false);
            http.set_read_timeout(60, 0);
            std::vector<Sample> samples;
            std::map<std::string, std::vector<std::pair<std::string, std::string>>> stored;
            int failures = 0;
            for (int i; (i = next++) < requests;) {
                const int op = i % 4;
                const std::string ein = "9" + std::to_string(c) + "00" + std::to_string(i % 3);
                std::string body, hash, text;
                if (op == 0) {
                    text = vellument_text(c, i);
                    hash = vlmtest::md5_hex(text + "#" + std::to_string(i));
                    body = envelope(kOps[op], ein,
                                    "<m:hash xsi:type=\"xsd:string\">" + hash +
                                        "</m:hash><m:fileText xsi:type=\"xsd:string\">" + upload_encoding(text) +
                                        "</m:fileText>");
                } else {
                    body = envelope(kOps[op], ein);
                }
                const auto t0 = std::chrono::steady_clock::now();
                auto res = http.Post("/supportservices.asmx",
                                     {{"SOAPAction", std::string(kNamespace) + kOps[op]}}, body,
                                     "text/xml; charset=utf-8");
                const double ms =
                    std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
                if (!res || res->status != 200) {
                    ++failures;
                    continue;
                }
                samples.push_back({op, ms});
                if (op == 0 && res->body.find("<response>1</response>") != std::string::npos)
                    stored[ein].emplace_back(hash, vlmtest::md5_hex(text));
            }
            std::lock_guard<std::mutex> lock(mutex);
            run.samples.insert(run.samples.end(), samples.begin(), samples.end());
            run.failures += failures;
            for (auto& s : stored)
                run.stored[s.first] = s.second;
        });
    }
    for (auto& t : threads)
        t.join();
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return run;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<std::size_t>(p * static_cast<double>(values.size())))];
}

void report(const char* name, const Run& run, int requests)
{
    std::printf("%s: %d requests, %d failed, %.2f s, %.1f requests/s\n", name, requests, run.failures, run.seconds,
                requests / run.seconds);
    for (int op = 0; op < 4; ++op) {
        std::vector<double> ms;
        for (const Sample& s : run.samples)
            if (s.op == op)
                ms.push_back(s.ms);
        std::printf("  %-20s n=%4zu  p50 %7.1f ms  p99 %7.1f ms\n", kOps[op], ms.size(), percentile(ms, 0.50),
                    percentile(ms, 0.99));
    }
}

// Every acknowledged store is in the database, with its hash and the text that was sent.
int check_database(const std::string& path, const Run& run)
{
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK)
        return -1;
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT v.text FROM versions v JOIN filings f ON f.id = v.filing"
                       " WHERE f.ein = ? AND v.hash = ?",
                       -1, &stmt, nullptr);
    int missing = 0;
    for (const auto& filing : run.stored) {
        for (const auto& store : filing.second) {
            sqlite3_reset(stmt);
            sqlite3_bind_text(stmt, 1, filing.first.c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(stmt, 2, store.first.c_str(), -1, SQLITE_TRANSIENT);
            const bool found =
                sqlite3_step(stmt) == SQLITE_ROW &&
                vlmtest::md5_hex(std::string(static_cast<const char*>(sqlite3_column_blob(stmt, 0)),
                                    static_cast<std::size_t>(sqlite3_column_bytes(stmt, 0)))) == store.second;
            missing += found ? 0 : 1;
        }
    }
    sqlite3_finalize(stmt);
    sqlite3_close(db);
    return missing;
}

// The latest acknowledged store of each filing is the one the service answers with.
int check_latest(int port, const Run& run)
{
    httplib::Client http("https://127.0.0.1:" + std::to_string(port));
    http.enable_server_certificate_verification(false);
    int wrong = 0;
    for (const auto& filing : run.stored) {
        auto res = http.Post("/supportservices.asmx", {{"SOAPAction", std::string(kNamespace) + "GetVellumentHash"}},
                             envelope("GetVellumentHash", filing.first), "text/xml; charset=utf-8");
        if (!res || res->body.find("<hash>" + filing.second.back().first + "</hash>") == std::string::npos)
            ++wrong;
    }
    return wrong;
}

long peak_kb(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return -1;
}

// The bare server's listening queue is lengthened as the service's is.
class BareServer : public httplib::SSLServer {
public:
    using httplib::SSLServer::SSLServer;
    void lengthen_queue() { ::listen(svr_sock_, SOMAXCONN); }
};

// The bare server: same HTTPS stack and certificate, a fixed reply of the right shape per operation.
Run baseline(const vlmtest::FilingService& service, int clients, int requests)
{
    const std::string dir = service.data_dir();
    BareServer server((dir + "/service-cert.pem").c_str(), (dir + "/service-key.pem").c_str());
    const std::string big(200 * 1024, 'x');
    server.Post("/supportservices.asmx", [&](const httplib::Request& req, httplib::Response& res) {
        const std::string action = req.get_header_value("SOAPAction");
        const std::string op = action.substr(action.rfind('/') + 1);
        const std::string answer = op == "GetVellument" ? "<fileText>" + big + "</fileText>"
                                   : op == "GetVellumentHash" ? "<hash>0123456789abcdef0123456789abcdef</hash>"
                                                               : "<response>1</response>";
        res.set_content("<?xml version=\"1.0\" encoding=\"utf-8\"?><soap:Envelope "
                        "xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\"><soap:Body><" + op +
                            "Response>" + answer + "</" + op + "Response></soap:Body></soap:Envelope>",
                        "text/xml; charset=utf-8");
    });
    const int port = server.bind_to_any_port("127.0.0.1");
    server.lengthen_queue();
    std::thread listener([&] { server.listen_after_bind(); });
    Run run = load(port, clients, requests);
    server.stop();
    listener.join();
    return run;
}

} // namespace

int main(int argc, char** argv)
{
    const int clients = argc > 1 ? std::atoi(argv[1]) : 16;
    const int requests = argc > 2 ? std::atoi(argv[2]) : 2000;
    if (clients < 1 || requests < 4) {
        std::fprintf(stderr, "usage: bench_filing_service [clients] [requests >= 4]\n");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);  // a connection the server drops is counted, not fatal
    vlmtest::FilingService service;
    std::printf("%d clients, %d requests (a quarter each of store 200 KB, get, hash, status)\n", clients, requests);
    const Run run = load(service.port(), clients, requests);
    report("filing service", run, requests);
    std::printf("  server peak memory (VmHWM): %.1f MB\n", peak_kb(service.pid()) / 1024.0);
    std::size_t acknowledged = 0;
    for (const auto& f : run.stored)
        acknowledged += f.second.size();
    const int missing = check_database(service.data_dir() + "/filing-service.db", run);
    const int wrong = check_latest(service.port(), run);
    std::printf("  acknowledged stores: %zu, missing or altered: %d, filings whose latest store does not answer: %d\n",
                acknowledged, missing, wrong);

    const Run bare = baseline(service, clients, requests);
    report("baseline (bare HTTPS, fixed replies)", bare, requests);
    std::printf("throughput ratio service/baseline: %.2f\n",
                (requests / run.seconds) / (requests / bare.seconds));
    return run.failures == 0 && missing == 0 && wrong == 0 ? 0 : 1;
}
