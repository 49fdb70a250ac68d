// `vellument check FILE`: the file's MD5 against the hash that the library recorded at its last
// save, and the upload status, without changing anything.

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <vellument/CPathHandling.h>
#include <vellument/CVellument.h>
#include <vellument/Ostrel_Format.h>
#include <vellument/Ostrel_IniFile.h>

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
};

Report examine(const std::string& path, const std::string& shown)
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
    return report;
}

} // namespace

Command add_check_command(CLI::App& app, const Context& context)
{
    struct Options {
        std::string file;
        std::string format = "text";
    };
    auto options = std::make_shared<Options>();
    CLI::App* sub = app.add_subcommand("check", "Tell whether a vellument changed since the library saved it (read-only)");
    sub->footer(
        "Compare a vellument file with what the library recorded when it last saved it, without changing\n"
        "anything: the file's MD5, the hash saved under the file's name in Histories\\Vellument.INI of its\n"
        "company directory, the upload status kept there (UploadSucceeded_<name>), and in words whether\n"
        "the file changed since that save and what the library's next normal open does about it. The\n"
        "filing server is not asked: check works offline.\n"
        "--format json prints an object with the keys: file, settings_file, md5, saved_hash (null when\n"
        "none is recorded), upload_status (\"true\", \"false\" or \"Not Found\"), upload, live, changed\n"
        "(true, false, or null for a file whose hash the library doesn't track) and verdict.");
    sub->add_option("FILE", options->file, "The vellument file")->required();
    sub->add_option("--format", options->format, "text (default) or json")
        ->check(CLI::IsMember({"text", "json"}));

    return Command{sub, [options, &context]() {
                       LibraryOutput output(context.verbose);
                       const Report report = examine(library_path(options->file), options->file);
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
                   }};
}

} // namespace cli
