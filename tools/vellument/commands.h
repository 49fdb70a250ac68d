#ifndef VELLUMENT_TOOL_COMMANDS_H
#define VELLUMENT_TOOL_COMMANDS_H

// Each command adds itself to the program's parser and hands back what runs it once the whole
// command line has been parsed and checked. A command reports a failure by throwing cli::Error.

#include <functional>
#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "cli_run.h"

namespace CLI {
class App;
}

namespace cli {

struct Context;

using tool_cli::Command;

Command add_show_command(CLI::App& app, const Context& context);
Command add_check_command(CLI::App& app, const Context& context);
Command add_sync_command(CLI::App& app, const Context& context);
Command add_mirror_command(CLI::App& app, const Context& context);
Command add_export_command(CLI::App& app, const Context& context);
Command add_demo_command(CLI::App& app, const Context& context);

// What `sync` does: a normal open of the vellument at the library path and the comparison with the
// server's status, as the report that `sync --format json` prints. A fault of the service throws
// cli::Error.
nlohmann::json sync_vellument(const std::string& library, const std::string& shown);
// That report in plain words.
void print_sync(std::ostream& out, const nlohmann::json& report);

// The readable timeline of a trail given as trail_to_json made it.
void print_timeline(std::ostream& out, const nlohmann::json& trail);

// Mirrors the vellument at the library path into the database (rows replaced wholesale) without
// writing the vellument file. Returns the number of transactions mirrored. The shown names are
// those to use in messages.
int mirror_into_database(const std::string& vellument, const std::string& shown, const std::string& database,
                         const std::string& shown_database, const std::string& password);

} // namespace cli

#endif
