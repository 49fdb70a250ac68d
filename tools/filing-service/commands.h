#ifndef VELLUMENT_FILING_SERVICE_COMMANDS_H
#define VELLUMENT_FILING_SERVICE_COMMANDS_H

// The program's commands. Each adds itself to the parser and gives back what runs it once the
// command line is parsed; a failure is thrown as CommandError and reported as one line.

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace fs_cli {

enum ExitCode { EXIT_OK = 0, EXIT_INPUT = 1, EXIT_USAGE = 2 };

class CommandError : public std::runtime_error {
public:
    explicit CommandError(const std::string& message, int exit_code = EXIT_INPUT)
        : std::runtime_error(message), exit_code_(exit_code)
    {
    }
    int exit_code() const { return exit_code_; }

private:
    int exit_code_;
};

struct Command {
    CLI::App* parser;
    std::function<void()> run;
};

Command add_serve_command(CLI::App& app);
Command add_copies_command(CLI::App& app);
Command add_set_copy_command(CLI::App& app);
Command add_remove_copy_command(CLI::App& app);
Command add_put_command(CLI::App& app);
Command add_get_command(CLI::App& app);
Command add_fault_command(CLI::App& app);

} // namespace fs_cli

#endif
