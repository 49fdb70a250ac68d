#ifndef VELLUMENT_FILING_SERVICE_COMMANDS_H
#define VELLUMENT_FILING_SERVICE_COMMANDS_H

// The program's commands. Each adds itself to the parser and gives back what runs it once the
// command line is parsed; a failure is thrown as CommandError and reported as one line.

#include <functional>
#include <stdexcept>
#include <string>

#include "cli_run.h"

namespace CLI {
class App;
}

namespace fs_cli {

using tool_cli::EXIT_INPUT;
using tool_cli::EXIT_OK;
using tool_cli::EXIT_USAGE;
using CommandError = tool_cli::Error;
using tool_cli::Command;

Command add_serve_command(CLI::App& app);
Command add_copies_command(CLI::App& app);
Command add_set_copy_command(CLI::App& app);
Command add_remove_copy_command(CLI::App& app);
Command add_put_command(CLI::App& app);
Command add_get_command(CLI::App& app);
Command add_fault_command(CLI::App& app);

} // namespace fs_cli

#endif
