// vellument-filing-service: a stand-in for the filing server. `serve` answers the four SOAP
// operations over HTTPS on this machine; the other commands look at and change its data, also
// while it runs, so that tests and demos can make the server change its mind.
//
// Exit codes: 0 done, 1 a failed operation or bad input (one line on stderr), 2 a wrong command
// line (one line on stderr; --help shows the usage).

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands.h"

int main(int argc, char** argv)
{
    CLI::App app{"A stand-in for the vellument filing server: the four SOAP operations (GetSubmissionStatus,\n"
                 "StoreVellument, GetVellument, GetVellumentHash) over HTTPS on this machine, with its data in\n"
                 "one directory, and commands that change that data while the server runs.\n"
                 "Exit codes: 0 done; 1 bad input or a failed operation; 2 a wrong command line.",
                 "vellument-filing-service"};
    app.require_subcommand(1);

    const std::vector<fs_cli::Command> commands = {
        fs_cli::add_serve_command(app),       fs_cli::add_copies_command(app), fs_cli::add_set_copy_command(app),
        fs_cli::add_remove_copy_command(app), fs_cli::add_put_command(app),    fs_cli::add_get_command(app),
        fs_cli::add_fault_command(app),
    };

    return tool_cli::run(app, argc, argv, commands);
}
