// `vellument check FILE [--server]`: the file's MD5 against the hash that the library recorded at
// its last save, and the upload status; with --server also the filing server's hash and whether
// the next normal open brings the server's copy down. Changes nothing.

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <vellument/CPathHandling.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_IniFile.h>
#include <vellument/ServerFunctions.h>
#include <vellument/eFileSOAPS.h>

#include "cli_support.h"
#include "commands.h"

using nlohmann::json;

namespace cli {

namespace {

const char kSection[] = "VELLUMENT";
const char kNotFound[] = "Not Found";

bool is_live(const std::string& name)
{
    return name.size() >= 3 && Ostrel::Format::EqualsNoCaseAscii(name.substr(name.size() - 3), "VLM");
}

struct Report {
    std::string file;
    std::string settings;
    std::string md5;
    std::string saved;
    std::string upload;
    bool live = false;
    json changed;  // true, false or null when the library doesn't keep track
    std::string verdict;
    // With --server:
    json server;   // the server's hash, null when it has none
    json server_error;
    bool download = false;
    std::string download_reason;
};

// A preset that no outcome of the service sets: still there after the call, nothing answered.
const int kNoAnswer = -1;

// Asks the server for its hash as a normal open does (the EIN, form type and year that the file
// records) and works out the open's download decision, without downloading.
void ask_server(const CVellument& vellument, Report& report)
{
    const std::string ein = vellument.get_filing_ein();
    const std::string form = vellument.get_form_type_string();
    const std::string year = vellument.get_filing_year();
    int error = kNoAnswer;
    const std::string hash = eFileSOAPS::get_vellument_hash(ein.c_str(), form.c_str(), year.c_str(), error);
    report.server = hash.empty() ? json(nullptr) : json(utf8(hash));
    report.server_error = error == kNoAnswer ? json(nullptr) : json(error);
    const bool upload_good = report.upload != kNotFound && report.upload != "false";
    const std::string asked = " for EIN " + ein + ", form " + form + ", year " + year;

    if (!report.live) {
        report.download_reason = "not a live vellument (.VLM): a normal open never asks the server about it";
    } else if (hash.empty() && error == kNoAnswer) {
        report.download_reason = "the filing service could not be reached (no answer" + asked +
                                 "): a normal open downloads nothing";
    } else if (error == 22) {
        report.download_reason = "the server holds no vellument" + asked + ": nothing to download";
    } else if (hash.empty()) {
        report.download_reason = "the server gave no hash" + asked + ": nothing to download";
    } else if (hash == report.md5) {
        report.download_reason = "the server's copy is the same as the file: nothing to download";
    } else if (!upload_good) {
        report.download_reason = "the server's copy differs, but no upload from this company directory has "
                                 "succeeded (upload status \"" + report.upload +
                                 "\"): the file is kept until an upload succeeds";
    } else if (skip_download(year.c_str(), form.c_str())) {
        report.download_reason = "the server's copy differs, but T5018 velluments of 2020 and 2021 are never "
                                 "brought down";
    } else {
        report.download = true;
        report.download_reason = "the server's copy differs and the last upload succeeded: the next normal open "
                                 "brings it down, keeps this file as " + file_name_of(report.file) +
                                 "_<time>.Backup and closes the current transaction as \"Server Download\"";
    }
}

Report examine(const std::string& path, const std::string& shown, bool server)
{
    CVellument vellument;
    open_trail(vellument, path, shown);

    // The name and the company directory exactly as the library's open formed them.
    Report report;
    report.file = vellument.get_vellument_name();
    report.settings = CPathHandling::get_company_dir() + "Histories\\Vellument.INI";
    report.md5 = md5_of_file(report.file);
    report.saved = _GetValue(report.settings, kSection, report.file.c_str(), kNotFound, false);
    report.upload = _GetValue(report.settings, kSection, ("UploadSucceeded_" + report.file).c_str(), kNotFound, false);
    report.live = is_live(report.file);

    if (!report.live) {
        report.verdict = "not a live vellument (.VLM): the library neither records nor checks the hash of this "
                         "file, so it does not know whether it changed";
    } else if (report.md5 == "-1") {
        report.verdict = "the file could not be read to hash it";
    } else if (report.saved == report.md5) {
        report.changed = false;
        report.verdict = "unchanged since the library last saved it: a normal open adds no transaction";
    } else {
        report.changed = true;
        report.verdict = std::string(report.saved == kNotFound
                                         ? "no hash is recorded for this file: the library never saved it under "
                                           "this name and directory, so it counts as edited"
                                         : "changed since the library last saved it") +
                         ": a normal open closes the current transaction as \"User Edit\", starts a new one and "
                         "saves the file, keeping this version as .BAK";
    }
    if (server)
        ask_server(vellument, report);
    return report;
}

} // namespace

Command add_check_command(CLI::App& app, const Context& context)
{
    struct Options {
        std::string file;
        std::string format = "text";
        bool server = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* sub = app.add_subcommand("check", "Tell whether a vellument changed since the library saved it (read-only)");
    sub->footer(
        "Compare a vellument file with what the library recorded when it last saved it, without changing\n"
        "anything: the file's MD5, the hash saved under the file's name in Histories\\Vellument.INI of its\n"
        "company directory, the upload status kept there (UploadSucceeded_<name>), and in words whether\n"
        "the file changed since that save and what the library's next normal open does about it.\n"
        "Without --server the filing server is not asked: check works offline. With --server it also\n"
        "asks the filing service (the one Settings.ini names) for its hash of the vellument, with the\n"
        "EIN, form type and year the file records, and says whether the next normal open would bring\n"
        "the server's copy down, and why; nothing is downloaded or written.\n"
        "--format json prints an object with the keys: file, settings_file, md5, saved_hash (null when\n"
        "none is recorded), upload_status (\"true\", \"false\" or \"Not Found\"), upload, live, changed\n"
        "(true, false, or null for a file whose hash the library doesn't track) and verdict; with\n"
        "--server also server_hash (null when the server has none), server_error (the service's code,\n"
        "null when it could not be reached), download (true or false) and download_reason.");
    sub->add_option("FILE", options->file, "The vellument file")->required();
    sub->add_option("--format", options->format, "text (default) or json")
        ->check(CLI::IsMember({"text", "json"}));
    sub->add_flag("--server", options->server, "Also ask the filing server for its hash (downloads nothing)");

    return Command{sub, [options, &context]() {
                       LibraryOutput output(context.verbose);
                       const Report report = examine(library_path(options->file), options->file, options->server);
                       if (options->format == "json") {
                           json out{{"file", utf8(report.file)},
                                    {"settings_file", utf8(report.settings)},
                                    {"md5", report.md5},
                                    {"saved_hash", report.saved == kNotFound ? json(nullptr) : json(utf8(report.saved))},
                                    {"upload_status", utf8(report.upload)},
                                    {"upload", utf8(upload_words(report.upload))},
                                    {"live", report.live},
                                    {"changed", report.changed},
                                    {"verdict", report.verdict}};
                           if (options->server) {
                               out["server_hash"] = report.server;
                               out["server_error"] = report.server_error;
                               out["download"] = report.download;
                               out["download_reason"] = utf8(report.download_reason);
                           }
                           std::cout << out.dump(2) << "\n";
                           return;
                       }
                       std::cout << "File           " << utf8(report.file) << "\n"
                                 << "MD5            " << report.md5 << "\n"
                                 << "Saved hash     "
                                 << (report.saved == kNotFound ? std::string("none recorded") : utf8(report.saved))
                                 << "\n"
                                 << "               in " << utf8(report.settings) << "\n"
                                 << "Upload status  " << utf8(report.upload) << ": " << upload_words(report.upload)
                                 << "\n"
                                 << "Verdict        " << report.verdict << "\n";
                       if (options->server) {
                           std::cout << "Server hash    "
                                     << (report.server.is_null() ? std::string("none")
                                                                 : report.server.get<std::string>())
                                     << "\n"
                                     << "Next open      " << (report.download ? "downloads" : "keeps the file")
                                     << ": " << utf8(report.download_reason) << "\n";
                       }
                   }};
}

} // namespace cli
