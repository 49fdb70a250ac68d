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

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        // One line, not CLI11's two: scripts read stderr too. A word that is no command is named
        // rather than reported as a missing command.
        std::string message = e.what();
        const std::vector<std::string> left = app.remaining();
        if (app.get_subcommands().empty() && !left.empty() && !left.front().empty() && left.front()[0] != '-')
            message = "unknown command \"" + left.front() + "\"";
        std::fprintf(stderr, "vellument: %s (see vellument --help)\n", message.c_str());
        return cli::EXIT_USAGE;
    }

    try {
        for (const cli::Command& command : commands) {
            if (command.parser->parsed()) {
                command.run();
                return cli::EXIT_OK;
            }
        }
        return cli::EXIT_USAGE;
    } catch (const cli::Error& e) {
        std::fprintf(stderr, "vellument: %s\n", e.what());
        return e.exit_code();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vellument: unexpected failure: %s\n", e.what());
        return cli::EXIT_INPUT;
    } catch (...) {
        std::fprintf(stderr, "vellument: unexpected failure\n");
        return cli::EXIT_INPUT;
    }
}
