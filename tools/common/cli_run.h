#ifndef VELLUMENT_TOOLS_CLI_RUN_H
#define VELLUMENT_TOOLS_CLI_RUN_H

// What the command-line programs share: exit codes, the one-line error, and the parse and run of
// one command with every failure as one line on stderr.

#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace tool_cli {

// 0 done, 1 bad input or a failed operation, 2 a wrong command line.
enum ExitCode { EXIT_OK = 0, EXIT_INPUT = 1, EXIT_USAGE = 2 };

// A failure to report as one line on stderr; the command stops and the program exits non-zero.
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& message, int exit_code = EXIT_INPUT)
        : std::runtime_error(message), exit_code_(exit_code)
    {
    }
    int exit_code() const { return exit_code_; }

private:
    int exit_code_;
};

// A subcommand and what runs when it was given.
struct Command {
    CLI::App* parser;
    std::function<void()> run;
};

// Parses the command line and runs the command it names; the exit code.
inline int run(CLI::App& app, int argc, char** argv, const std::vector<Command>& commands)
{
    const std::string program = app.get_name();
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
        std::fprintf(stderr, "%s: %s (see %s --help)\n", program.c_str(), message.c_str(), program.c_str());
        return EXIT_USAGE;
    }

    try {
        for (const Command& command : commands) {
            if (command.parser->parsed()) {
                command.run();
                return EXIT_OK;
            }
        }
        return EXIT_USAGE;
    } catch (const Error& e) {
        std::fprintf(stderr, "%s: %s\n", program.c_str(), e.what());
        return e.exit_code();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: unexpected failure: %s\n", program.c_str(), e.what());
        return EXIT_INPUT;
    } catch (...) {
        std::fprintf(stderr, "%s: unexpected failure\n", program.c_str());
        return EXIT_INPUT;
    }
}

} // namespace tool_cli

#endif
