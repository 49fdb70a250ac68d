#ifndef VELLUMENT_TOOL_FILING_SERVICE_H
#define VELLUMENT_TOOL_FILING_SERVICE_H

// The stand-in filing service (vellument-filing-service) run as a child process on the loopback
// interface, and its admin commands, for the demo.

#include <string>
#include <sys/types.h>
#include <vector>

namespace cli {

class FilingService {
public:
    // The program beside this tool's executable, else where the build tree puts it. Throws
    // cli::Error naming both places when it is in neither.
    static std::string find_program();

    // Starts `serve` on 127.0.0.1, on a free port, with its data in data_dir (disk form) and its
    // request log in log_file, and waits (bounded) for the line that gives its URL.
    FilingService(const std::string& program, const std::string& data_dir, const std::string& log_file);
    // Stops the service: SIGTERM, then SIGKILL if it hasn't ended within a few seconds.
    ~FilingService();
    FilingService(const FilingService&) = delete;
    FilingService& operator=(const FilingService&) = delete;

    const std::string& url() const { return url_; }
    // Runs `program COMMAND --data DIR ARGS...` to its end (bounded) and gives its stdout. Throws
    // cli::Error with its stderr when it fails.
    std::string admin(const std::string& command, const std::vector<std::string>& args) const;

private:
    void stop();

    std::string program_;
    std::string data_dir_;
    std::string url_;
    pid_t pid_ = -1;
};

} // namespace cli

#endif
