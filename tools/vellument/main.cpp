// vellument: look at, check and mirror the audit trails of year-end filings from the command line.
//
// Exit codes: 0 done, 1 the input was bad or an operation failed (one line on stderr), 2 the
// command line was wrong (one line on stderr; --help shows the usage).

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli_support.h"
#include "commands.h"

int main(int argc, char** argv)
{
    cli::Context context;
    CLI::App app{"Look at, check, reconcile and mirror vellument audit trails, the XML documents in which the filing\n"
                 "application records every step of a year-end filing.\n"
                 "Exit codes: 0 done; 1 bad input or a failed operation; 2 a wrong command line.",
                 "vellument"};
    app.require_subcommand(1);
    app.fallthrough();
    app.add_flag("-v,--verbose", context.verbose, "Also print the library's log and messages on stderr");

    const std::vector<cli::Command> commands = {
        cli::add_show_command(app, context),   cli::add_check_command(app, context),
        cli::add_sync_command(app, context),   cli::add_mirror_command(app, context),
        cli::add_export_command(app, context), cli::add_demo_command(app, context),
    };

    return tool_cli::run(app, argc, argv, commands);
}
