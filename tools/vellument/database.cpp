// `vellument mirror` and `vellument export`: a vellument into and out of the SQL mirror.

#include <cctype>
#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include <vellument/CPathHandling.h>
#include <vellument/CVellument.h>
#include <vellument/CvellumentDB.h>
#include <vellument/FormCodes.h>
#include <vellument/Ostrel_Database.h>
#include <vellument/Ostrel_Format.h>

#include "cli_support.h"
#include "commands.h"

namespace cli {

namespace {

const char kPasswordHelp[] =
    "Name of an environment variable that holds the database password. Without it the password is "
    "asked for when stdin is a terminal, and is empty otherwise. An empty password means a plain "
    "SQLite file.";

bool all_digits(const std::string& text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    return true;
}

std::string extension_of(const std::string& name)
{
    return name.size() >= 3 ? Ostrel::Format::ToUpperAscii(name.substr(name.size() - 3)) : std::string();
}

// The three texts by which the mirror keys a vellument must be ones it can use.
void check_identity(const std::string& form_type, const std::string& year, const std::string& name,
                    const std::string& shown)
{
    if (get_form_type_from_string(form_type.c_str()) == Vellument::FORM_TYPES_UNKNOWN)
        throw Error(shown + ": form type \"" + utf8(form_type) +
                    "\" is not one the database mirror knows, and the mirror keys its rows by it");
    if (!all_digits(year))
        throw Error(shown + ": filing year \"" + utf8(year) +
                    "\" is not a number, and the database mirror keys its rows by it");
    const std::string extension = extension_of(name);
    if (extension != "VLM" && extension != "TLM")
        throw Error(shown + ": only .VLM and .TLM vellument files are kept in the database mirror");
}

void remove_file(const std::string& library)
{
    std::remove(disk_path(library).c_str());
}

std::string open_failure(const Ostrel::DatabaseEx& database, const std::string& shown, const std::string& password)
{
    std::string text = "cannot open database " + shown;
    text += password.empty() ? ": not an SQLite database, or it needs a password (see --password-env)"
                             : ": wrong password, or not a database";
    const std::string detail = database.GetLastErrorText();
    if (!detail.empty())
        text += " (" + detail + ")";
    return text;
}

} // namespace

int mirror_into_database(const std::string& vellument, const std::string& shown, const std::string& database,
                         const std::string& shown_database, const std::string& password)
{
    CVellument trail;
    open_trail(trail, vellument, shown);
    check_identity(trail.get_form_type_string(), trail.get_filing_year(), trail.get_vellument_name(), shown);

    if (directory_exists(database))
        throw Error(shown_database + " is a directory, not a database file");
    if (!directory_exists(directory_of(database)))
        throw Error("the directory of the database " + shown_database + " does not exist");

    // A database that this call creates goes again if the mirror fails, so that a failure leaves the
    // disk as it was.
    const bool existed = file_exists(database);
    Ostrel::DatabaseEx connection;
    if (!connection.OpenFile(database, password)) {
        if (!existed)
            remove_file(database);
        throw Error(open_failure(connection, shown_database, password));
    }
    {
        CvellumentDB mapper;
        // The old rows go first: the mirror of a vellument is replaced wholesale. A database without
        // the tables has nothing to delete, which the mapper reports as false.
        mapper.DeleteRecords(&trail, &connection);
        if (!mapper.writeRecords(&trail, &connection)) {
            const std::string detail = connection.GetLastErrorText();
            connection.Close();
            if (!existed)
                remove_file(database);
            throw Error("writing " + shown + " into the database " + shown_database + " failed; nothing was kept" +
                        (detail.empty() ? std::string() : " (" + detail + ")"));
        }
    }
    return trail.get_transaction_count();
}

Command add_mirror_command(CLI::App& app, const Context& context)
{
    struct Options {
        std::string file;
        std::string database;
        std::string password_env;
    };
    auto options = std::make_shared<Options>();
    CLI::App* sub = app.add_subcommand("mirror", "Mirror a vellument into the SQL database (the file is not touched)");
    sub->footer(
        "Mirror a vellument into the SQL tables (VLMvellument, VLMtransaction, ...) of an SQLite\n"
        "database, as the filing application does: the rows of this vellument, keyed by its form\n"
        "type, filing year and extension, are deleted and written anew in one transaction. The\n"
        "database file is created when missing. The vellument file is only read: unlike the library's\n"
        "save_to_vellument_database, mirror doesn't rewrite it, back it up or record its hash.\n"
        "The password never comes from the command line: see --password-env.");
    sub->add_option("FILE", options->file, "The vellument file")->required();
    sub->add_option("--db", options->database, "The database file")->required();
    sub->add_option("--password-env", options->password_env, kPasswordHelp);

    return Command{sub, [options, &context]() {
                       LibraryOutput output(context.verbose);
                       const std::string file = library_path(options->file);
                       const std::string database = library_path(options->database);
                       const std::string password = read_password(options->password_env);
                       const int count = mirror_into_database(file, options->file, database, options->database, password);
                       std::cout << "Mirrored " << count << (count == 1 ? " transaction" : " transactions") << " of "
                                 << options->file << " into " << options->database
                                 << "; the vellument file was not changed.\n";
                   }};
}

Command add_export_command(CLI::App& app, const Context& context)
{
    struct Options {
        std::string database;
        std::string name;
        std::string out;
        std::string password_env;
        bool force = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* sub = app.add_subcommand("export", "Rebuild a vellument file from the SQL database");
    sub->footer(
        "Rebuild a vellument from the SQL mirror and write it to OUT. --name is the vellument's file\n"
        "name as the application names it (Vellument_W2_2021.VLM): its form code, year and extension\n"
        "are the keys of its rows. The database must exist; it is only read.\n"
        "OUT is written as the library saves a vellument. For a .VLM target that means a live\n"
        "vellument: an existing OUT is first copied to the name ending in .BAK, OUT's MD5 is recorded\n"
        "in Histories\\Vellument.INI of OUT's company directory (OUT's folder, or its parent when that\n"
        "folder is named Histories), and a trail with an e-filed copy is offered to the filing server.\n"
        "Any other extension (.xml) gives a plain file and nothing else. An existing OUT is only\n"
        "replaced with --force.");
    sub->add_option("--db", options->database, "The database file")->required();
    sub->add_option("--name", options->name, "The vellument's file name, e.g. Vellument_W2_2021.VLM")->required();
    sub->add_option("--out", options->out, "Where to write the vellument")->required();
    sub->add_flag("--force", options->force, "Replace OUT when it exists");
    sub->add_option("--password-env", options->password_env, kPasswordHelp);

    return Command{sub, [options, &context]() {
                       LibraryOutput output(context.verbose);
                       const std::string database = library_path(options->database);
                       const std::string out = library_path(options->out);
                       if (!file_exists(database)) {
                           throw Error(directory_exists(database) ? options->database + " is a directory"
                                                                  : options->database + ": no such database file");
                       }
                       if (directory_exists(out))
                           throw Error(options->out + " is a directory");
                       if (!directory_exists(directory_of(out)))
                           throw Error("the directory of " + options->out + " does not exist");
                       if (file_exists(out) && !options->force)
                           throw Error(options->out + " exists; add --force to replace it");

                       // The keys of the rows come from the name alone, whatever directory it was given with.
                       std::string name = options->name;
                       const std::string::size_type slash = name.find_last_of("/\\");
                       if (slash != std::string::npos)
                           name = name.substr(slash + 1);
                       const std::string::size_type first = name.find('_');
                       const std::string::size_type second =
                           first == std::string::npos ? std::string::npos : name.find('_', first + 1);
                       const std::string code =
                           second == std::string::npos ? std::string() : name.substr(first + 1, second - first - 1);
                       const std::string form_type = convert_form_code_to_form_type_string(code.c_str());
                       const std::string year = name.size() >= 8 ? name.substr(name.size() - 8, 4) : std::string();
                       if (form_type.empty())
                           throw Error("--name " + options->name +
                                       " is no vellument name: expected a name such as Vellument_W2_2021.VLM");
                       check_identity(form_type, year, name, "--name " + options->name);

                       const std::string password = read_password(options->password_env);
                       Ostrel::DatabaseEx connection;
                       if (!connection.OpenExistingFile(database, password))
                           throw Error(open_failure(connection, options->database, password));

                       int count = 0;
                       {
                           CVellument trail;
                           trail.set_form_type_string(form_type.c_str());
                           // Read under OUT's directory, so that the company-relative paths of the
                           // records resolve where the file is going.
                           const std::string lookup = directory_of(out) + name;
                           if (!trail.read_from_vellument_database(lookup.c_str(), "", year.c_str(), "", &connection) ||
                               trail.get_current_transaction() == nullptr) {
                               throw Error(options->database + " holds no vellument " + name);
                           }
                           trail.set_vellument_name(out.c_str());
                           output.clear();
                           if (trail.save(nullptr) == 0) {
                               const std::string why = output.last_failure();
                               throw Error("writing " + options->out + " failed" +
                                           (why.empty() ? std::string() : ": " + utf8(why)));
                           }
                           count = trail.get_transaction_count();
                       }
                       std::cout << "Exported " << count << (count == 1 ? " transaction" : " transactions") << " of "
                                 << name << " from " << options->database << " to " << options->out << ".\n";
                       if (extension_of(out) == "VLM") {
                           // The library records the hash beside the company's other velluments; without
                           // that folder it can't, and the next open counts the file as edited.
                           const std::string histories = CPathHandling::get_company_dir() + "Histories";
                           if (directory_exists(histories))
                               std::cout << "Its hash is recorded in " << utf8(histories) << "\\Vellument.INI.\n";
                           else
                               std::cout << "Its hash could not be recorded: " << utf8(histories)
                                         << " does not exist, so the library's next open counts the file as "
                                            "edited.\n";
                       }
                   }};
}

} // namespace cli
