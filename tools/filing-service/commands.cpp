#include "commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "operations.h"
#include "server.h"
#include "soap.h"
#include "store.h"
#include "text.h"

namespace fs_cli {

namespace {

const std::vector<std::string> kCopyTypes = {"FED", "STATE", "LOCAL", "EMP"};

// Options that name the data directory and one filing.
struct FilingOptions {
    std::string data;
    std::string ein;
    std::string form;
    std::string year;

    // The filing as the client names it: the EIN without hyphens and blanks.
    fs_store::FilingKey key() const { return fs_store::FilingKey{fs_text::normalise_ein(ein), form, year}; }
};

void add_data_option(CLI::App* command, std::string& data)
{
    command->add_option("--data", data, "The service's data directory")->required();
}

void add_filing_options(CLI::App* command, FilingOptions& options, bool required)
{
    add_data_option(command, options.data);
    CLI::Option* ein = command->add_option("--ein", options.ein, "The filer's EIN (hyphens and blanks are dropped)");
    CLI::Option* form = command->add_option("--form", options.form, "The form name, as the client sends it");
    CLI::Option* year = command->add_option("--year", options.year, "The filing year, as the client sends it");
    if (required) {
        ein->required();
        form->required();
        year->required();
    }
}

// Options that name one copy of a filing.
struct CopyOptions {
    FilingOptions filing;
    std::string type;
    std::string code;
};

void add_copy_options(CLI::App* command, CopyOptions& options)
{
    add_filing_options(command, options.filing, true);
    command->add_option("--type", options.type, "FED, STATE, LOCAL or EMP")
        ->required()
        ->check(CLI::IsMember(kCopyTypes));
    command->add_option("--code", options.code, "The copy's code (its identifier, such as FE or a state code)")
        ->required();
}

// The store of an existing data directory: an admin command never makes a new one by mistake.
std::unique_ptr<fs_store::Store> open_store(const std::string& data)
{
    struct stat st;
    if (::stat(data.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        throw CommandError("no data directory " + data);
    return std::make_unique<fs_store::Store>(data);
}

std::optional<bool> parse_flag(const std::string& text, const char* option)
{
    if (text.empty())
        return std::nullopt;
    if (text == "true" || text == "yes" || text == "1")
        return true;
    if (text == "false" || text == "no" || text == "0")
        return false;
    throw CommandError(std::string(option) + ": expected true or false, got \"" + text + "\"", EXIT_USAGE);
}

std::string read_whole_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw CommandError("cannot read " + path + ": " + std::strerror(errno));
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Replaces the file whole or not at all.
void write_whole_file(const std::string& path, const std::string& bytes)
{
    const std::string temporary = path + ".tmp." + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        out.close();
        if (!out) {
            std::remove(temporary.c_str());
            throw CommandError("cannot write " + path);
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        throw CommandError("cannot write " + path + ": " + std::strerror(errno));
    }
}

const char* yes_no(bool value)
{
    return value ? "true" : "false";
}

} // namespace

Command add_serve_command(CLI::App& app)
{
    auto options = std::make_shared<fs_server::Options>();
    CLI::App* command = app.add_subcommand(
        "serve", "Answer the four operations on POST /supportservices.asmx until SIGINT or SIGTERM. Once it\n"
                 "listens it prints one line on stdout, the service's URL. One line per request on stderr.");
    add_data_option(command, options->data);
    command->add_option("--listen", options->listen, "ADDRESS:PORT to listen on; port 0 picks a free one")
        ->capture_default_str();
    command->add_flag("--allow-remote", options->allow_remote, "Allow --listen on an address that is not loopback");
    command->add_option("--cert", options->cert,
                        "Certificate (PEM); without it a self-signed one for localhost is made in DIR");
    command->add_option("--key", options->key, "Private key (PEM) of --cert");
    command->add_flag("--plain-http", options->plain_http, "Serve plain HTTP instead of HTTPS");
    command->add_option("--max-body", options->max_body, "Largest request body in bytes")
        ->check(CLI::Range(std::size_t{1024}, std::size_t{1} << 30))
        ->capture_default_str();
    command->add_option("--read-timeout-ms", options->read_timeout_ms,
                        "Longest wait for one read or write on a connection")
        ->check(CLI::Range(1L, 3600000L))
        ->capture_default_str();
    command->add_option("--request-timeout-ms", options->request_timeout_ms,
                        "Longest time for a whole request body to arrive")
        ->check(CLI::Range(1L, 3600000L))
        ->capture_default_str();
    command->add_option("--keep-alive", options->keep_alive_s, "Seconds an idle connection is kept open")
        ->check(CLI::Range(0L, 3600L))
        ->capture_default_str();
    command->add_option("--threads", options->threads, "Connections served at once")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    return Command{command, [options] {
                       if (::mkdir(options->data.c_str(), 0700) != 0 && errno != EEXIST)
                           throw CommandError("cannot make the data directory " + options->data + ": " +
                                              std::strerror(errno));
                       fs_server::serve(*options);
                   }};
}

Command add_copies_command(CLI::App& app)
{
    auto options = std::make_shared<FilingOptions>();
    auto format = std::make_shared<std::string>("text");
    CLI::App* command = app.add_subcommand("copies", "List the copies the service holds, of all filings or of one");
    add_filing_options(command, *options, false);
    command->add_option("--format", *format, "text or json")->check(CLI::IsMember({"text", "json"}));
    return Command{command, [options, format] {
                       const auto store = open_store(options->data);
                       const auto copies = store->list_copies(options->key());
                       if (*format == "json") {
                           nlohmann::json list = nlohmann::json::array();
                           for (const auto& c : copies)
                               list.push_back({{"ein", c.filing.ein},     {"form", c.filing.form},
                                               {"year", c.filing.year},   {"type", c.copy.type},
                                               {"code", c.copy.code},     {"vlid", c.copy.vlid},
                                               {"replaceable", c.copy.replaceable},
                                               {"deleted", c.copy.deleted}});
                           std::cout << list.dump(2) << "\n";
                           return;
                       }
                       for (const auto& c : copies)
                           std::cout << c.filing.ein << " " << c.filing.form << " " << c.filing.year << " "
                                     << c.copy.type << " " << c.copy.code << " vlid=" << c.copy.vlid
                                     << " replaceable=" << yes_no(c.copy.replaceable)
                                     << " deleted=" << yes_no(c.copy.deleted) << "\n";
                   }};
}

Command add_set_copy_command(CLI::App& app)
{
    struct SetCopy : CopyOptions {
        std::string replaceable, deleted;
        std::optional<long> vlid;
        long vlid_value = 0;
    };
    auto o = std::make_shared<SetCopy>();
    CLI::App* command = app.add_subcommand(
        "set-copy", "Add a copy to a filing or change one; options not given keep their value (0 or false on a\n"
                    "new copy). The service answers with it from the next GetSubmissionStatus on.");
    add_copy_options(command, *o);
    CLI::Option* vlid = command->add_option("--vlid", o->vlid_value, "The server's identifier of the copy");
    command->add_option("--replaceable", o->replaceable, "true or false");
    command->add_option("--deleted", o->deleted, "true or false");
    return Command{command, [o, vlid] {
                       const std::optional<bool> replaceable = parse_flag(o->replaceable, "--replaceable");
                       const std::optional<bool> deleted = parse_flag(o->deleted, "--deleted");
                       if (vlid->count() > 0)
                           o->vlid = o->vlid_value;
                       const auto store = open_store(o->filing.data);
                       const bool fresh =
                           store->set_copy(o->filing.key(), o->type, o->code, o->vlid, replaceable, deleted);
                       std::cout << (fresh ? "added " : "changed ") << o->type << " " << o->code << "\n";
                   }};
}

Command add_remove_copy_command(CLI::App& app)
{
    auto o = std::make_shared<CopyOptions>();
    CLI::App* command = app.add_subcommand(
        "remove-copy", "Make the service lose a copy. It stays lost: a later upload that still has it e-filed\n"
                       "does not bring it back; set-copy does.");
    add_copy_options(command, *o);
    return Command{command, [o] {
                       const auto store = open_store(o->filing.data);
                       if (!store->remove_copy(o->filing.key(), o->type, o->code))
                           throw CommandError("the service holds no copy " + o->type + " " + o->code + " of " +
                                              o->filing.key().ein + " " + o->filing.form + " " + o->filing.year);
                       std::cout << "removed " << o->type << " " << o->code << "\n";
                   }};
}

Command add_put_command(CLI::App& app)
{
    struct Put {
        FilingOptions filing;
        std::string file, hash;
    };
    auto o = std::make_shared<Put>();
    CLI::App* command = app.add_subcommand(
        "put", "Store a vellument file as another workstation would, with the MD5 of its bytes: the next\n"
               "open of a local copy that differs downloads this one. Its e-filed copies are taken in.");
    add_filing_options(command, o->filing, true);
    command->add_option("FILE", o->file, "The vellument file (UTF-8 or Windows-1252)")->required();
    command->add_option("--hash", o->hash, "Store this hash instead of the file's MD5");
    return Command{command, [o] {
                       const std::string bytes = read_whole_file(o->file);
                       const std::string hash = o->hash.empty() ? fs_text::md5_hex(bytes) : o->hash;
                       const auto store = open_store(o->filing.data);
                       const int number = fs_ops::store_vellument(*store, o->filing.key(), hash,
                                                                  fs_text::repair_utf8(bytes), "put");
                       std::cout << "stored version " << number << " hash " << hash << "\n";
                   }};
}

Command add_get_command(CLI::App& app)
{
    struct Get {
        FilingOptions filing;
        std::string output;
        int version = 0;
        bool info = false;
    };
    auto o = std::make_shared<Get>();
    CLI::App* command =
        app.add_subcommand("get", "Write a stored version of a vellument out (the latest unless --version)");
    add_filing_options(command, o->filing, true);
    command->add_option("--version", o->version, "The version's number, 1 for the first stored");
    command->add_option("-o,--output", o->output, "Write to this file (replaced whole) instead of stdout");
    command->add_flag("--info", o->info, "Print the version's number, time, hash, source and the version count instead");
    return Command{command, [o] {
                       const auto store = open_store(o->filing.data);
                       fs_store::Version version;
                       if (!store->get_version(o->filing.key(), version, o->version))
                           throw CommandError("no such version of " + o->filing.key().ein + " " + o->filing.form +
                                              " " + o->filing.year);
                       if (o->info) {
                           std::cout << "version " << version.number << " of " << store->version_count(o->filing.key())
                                     << " stored " << version.stored_at << " hash " << version.hash << " by "
                                     << version.source << "\n";
                       } else if (o->output.empty()) {
                           std::cout.write(version.text.data(), static_cast<std::streamsize>(version.text.size()));
                       } else {
                           write_whole_file(o->output, version.text);
                       }
                   }};
}

Command add_fault_command(CLI::App& app)
{
    struct FaultOptions {
        std::string data;
        fs_store::Fault fault;
        bool list = false, clear = false;
    };
    auto o = std::make_shared<FaultOptions>();
    o->fault.operation = "any";
    o->fault.remaining = 1;
    CLI::App* command = app.add_subcommand(
        "fault", "Queue a fault: the next --count requests of --op get --kind instead of the normal reply.\n"
                 "Faults are used oldest first. Kinds (soap-env, delay, gzip and chunked still perform the\n"
                 "operation; the others replace it):\n" +
                     fs_ops::fault_kinds_help());
    add_data_option(command, o->data);
    std::vector<std::string> operations(std::begin(fs_soap::kOperations), std::end(fs_soap::kOperations));
    operations.push_back("any");
    command->add_option("--op", o->fault.operation, "The operation, or any")
        ->check(CLI::IsMember(operations))
        ->capture_default_str();
    CLI::Option* kind = command->add_option("--kind", o->fault.kind, "The fault kind, see above");
    command->add_option("--count", o->fault.remaining, "How many requests get it")
        ->check(CLI::Range(1L, 1000000L))
        ->capture_default_str();
    command->add_option("--text", o->fault.text, "The faultstring of system-error and fault");
    command->add_option("--ms", o->fault.delay_ms, "The wait of delay")->check(CLI::Range(0L, 600000L));
    command->add_flag("--list", o->list, "List the queued faults");
    command->add_flag("--clear", o->clear, "Drop every queued fault");
    return Command{command, [o, kind] {
                       const int actions = (kind->count() > 0) + o->list + o->clear;
                       if (actions != 1)
                           throw CommandError("fault: give exactly one of --kind, --list and --clear", EXIT_USAGE);
                       const auto store = open_store(o->data);
                       if (o->clear) {
                           std::cout << "cleared " << store->clear_faults() << " faults\n";
                       } else if (o->list) {
                           for (const auto& f : store->list_faults())
                               std::cout << f.operation << " " << f.kind << " remaining=" << f.remaining
                                         << (f.delay_ms ? " ms=" + std::to_string(f.delay_ms) : "")
                                         << (f.text.empty() ? "" : " text=\"" + f.text + "\"") << "\n";
                       } else {
                           if (!fs_ops::is_fault_kind(o->fault.kind))
                               throw CommandError("fault: unknown kind \"" + o->fault.kind + "\"", EXIT_USAGE);
                           if (o->fault.kind == "delay" && o->fault.delay_ms <= 0)
                               throw CommandError("fault: delay needs --ms", EXIT_USAGE);
                           store->add_fault(o->fault);
                           std::cout << "queued " << o->fault.kind << " for the next " << o->fault.remaining << " "
                                     << o->fault.operation << " requests\n";
                       }
                   }};
}

} // namespace fs_cli
