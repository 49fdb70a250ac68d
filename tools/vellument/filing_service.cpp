#include "filing_service.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "cli_support.h"

namespace cli {

namespace {

const char kProgram[] = "vellument-filing-service";
// Generous: the service makes its certificate on first start, and machines under load are slow.
const int kStartSeconds = 30;
const int kAdminSeconds = 30;
const int kStopSeconds = 5;

std::string own_directory()
{
    char buffer[PATH_MAX];
    const ssize_t size = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (size <= 0)
        return std::string();
    buffer[size] = '\0';
    return std::filesystem::path(buffer).parent_path().string();
}

bool is_program(const std::string& path)
{
    return !path.empty() && ::access(path.c_str(), X_OK) == 0 && std::filesystem::is_regular_file(path);
}

// Reads what the descriptor gives until it closes (or, with `one_line`, until a line is complete)
// or the deadline passes; false on time-out.
bool read_output(int fd, std::string& out, std::chrono::steady_clock::time_point deadline, bool one_line)
{
    char buffer[4096];
    while (!(one_line && out.find('\n') != std::string::npos)) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                                std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        pollfd p{fd, POLLIN, 0};
        const int ready = ::poll(&p, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return true;
        out.append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

// Waits for the child to end until the deadline; its exit code, or -1 when it is still running.
int wait_for(pid_t pid, std::chrono::steady_clock::time_point deadline)
{
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (done < 0 && errno != EINTR)
            return 128;
        if (std::chrono::steady_clock::now() >= deadline)
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// Starts program with args, its stderr appended to err_path; read_fd receives the reading end of
// its stdout, which the caller closes.
pid_t spawn(const std::string& program, const std::vector<std::string>& args, const std::string& err_path,
            int& read_fd)
{
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0)
        throw Error("cannot run the filing service: " + std::string(std::strerror(errno)));
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int in = ::open("/dev/null", O_RDONLY);
        const int err = ::open(err_path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (in >= 0)
            ::dup2(in, 0);
        ::dup2(out[1], 1);
        if (err >= 0)
            ::dup2(err, 2);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    const int fork_error = errno;
    ::close(out[1]);
    if (pid < 0) {
        ::close(out[0]);
        throw Error("cannot run the filing service: " + std::string(std::strerror(fork_error)));
    }
    read_fd = out[0];
    return pid;
}

std::string first_line(const std::string& text)
{
    const std::string::size_type end = text.find('\n');
    std::string line = end == std::string::npos ? text : text.substr(0, end);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
        line.pop_back();
    return line;
}

} // namespace

std::string FilingService::find_program()
{
    const std::string here = own_directory();
    const std::string beside = here + "/" + kProgram;
    if (is_program(beside))
        return beside;
    // In the build tree the service is built into its own folder next to this tool's.
    const std::string built = here + "/../filing-service/" + kProgram;
    if (is_program(built))
        return std::filesystem::path(built).lexically_normal().string();
    throw Error(std::string("the stand-in filing service ") + kProgram +
                " was not found, neither beside this program (" + beside + ") nor in the build tree (" + built +
                "); build it with: cmake --build build --target vellument_filing_service");
}

FilingService::FilingService(const std::string& program, const std::string& data_dir, const std::string& log_file)
    : program_(program), data_dir_(data_dir)
{
    int out = -1;
    pid_ = spawn(program_, {"serve", "--data", data_dir_, "--listen", "127.0.0.1:0"}, log_file, out);
    // The service prints its URL on a line of its own once it listens.
    std::string said;
    read_output(out, said, std::chrono::steady_clock::now() + std::chrono::seconds(kStartSeconds), true);
    ::close(out);
    url_ = first_line(said);
    if (url_.rfind("https://", 0) != 0) {
        stop();
        throw Error("the filing service did not start (its log: " + log_file + ")");
    }
}

FilingService::~FilingService()
{
    stop();
}

void FilingService::stop()
{
    if (pid_ <= 0)
        return;
    ::kill(pid_, SIGTERM);
    if (wait_for(pid_, std::chrono::steady_clock::now() + std::chrono::seconds(kStopSeconds)) < 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

std::string FilingService::admin(const std::string& command, const std::vector<std::string>& args) const
{
    std::vector<std::string> all = {command, "--data", data_dir_};
    all.insert(all.end(), args.begin(), args.end());
    const std::string err_path = data_dir_ + "/admin.err";
    std::error_code ec;
    std::filesystem::remove(err_path, ec);
    int out = -1;
    const pid_t pid = spawn(program_, all, err_path, out);
    std::string said;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kAdminSeconds);
    const bool closed = read_output(out, said, deadline, false);
    ::close(out);
    int code = closed ? wait_for(pid, deadline) : -1;
    if (code < 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        throw Error("the filing service's " + command + " command did not finish");
    }
    if (code != 0) {
        std::ifstream err(err_path);
        std::string why;
        std::getline(err, why);
        throw Error("the filing service's " + command + " command failed: " + first_line(why));
    }
    return said;
}

} // namespace cli
