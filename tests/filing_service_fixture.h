#ifndef VELLUMENT_TESTS_FILING_SERVICE_FIXTURE_H
#define VELLUMENT_TESTS_FILING_SERVICE_FIXTURE_H

// The stand-in filing service (`vellument-filing-service`) run as a child process, for tests and
// benchmarks that talk to a real server over real HTTPS.
//
//     vlmtest::FilingService service;            // starts it: 127.0.0.1, a free port, a fresh DIR
//     service.url();                             // https://127.0.0.1:PORT/supportservices.asmx
//     service.write_settings(appdata_dir);       // Settings.ini that points the library at it
//     service.admin({"set-copy", "--ein", "123456789", "--form", "W2", "--year", "2025",
//                    "--type", "FED", "--code", "FE", "--vlid", "7"});   // --data DIR is added
//     service.admin({"fault", "--op", "GetVellument", "--kind", "system-error"});
//     service.stop(); service.start();           // restart on the same DIR: the data is kept
//                                                // (the port is a new one: call url() again)
//
// The destructor stops the server (SIGTERM, then SIGKILL after a bounded wait), reaps it and
// removes the directory. Every wait is bounded; failures to start throw std::runtime_error with
// the server's stderr. FilingService::available() is false when the build has no such program
// (VELLUMENT_FILING_SERVICE_PATH undefined): skip the test then.
//
// The server gets SIGTERM when the thread that started it ends, so that a test process that dies
// (a crash, an abort) leaves no server behind: start it on a thread that outlives the object.
// A client still writing when the server cuts the connection (the close fault, the body limits)
// meets SIGPIPE unless it sends with MSG_NOSIGNAL or the process ignores the signal.
// Not thread-safe: use one object from one thread. Header-only, Linux.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace vlmtest {

class FilingService {
public:
    struct Result {
        int code = -1;  // exit code, or -1 when it did not exit normally
        std::string out;
        std::string err;
    };

    static const char* program()
    {
#ifdef VELLUMENT_FILING_SERVICE_PATH
        return VELLUMENT_FILING_SERVICE_PATH;
#else
        return nullptr;
#endif
    }
    static bool available() { return program() != nullptr; }

    // Starts the server with `serve --data DIR --listen 127.0.0.1:0` and the extra arguments
    // (for example {"--plain-http"} or {"--max-body", "1000"}).
    explicit FilingService(std::vector<std::string> serve_args = {}) : serve_args_(std::move(serve_args))
    {
        if (!available())
            throw std::runtime_error("the filing service was not built");
        std::string pattern = (std::filesystem::temp_directory_path() / "vlm-service-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        base_ = pattern;
        std::filesystem::create_directory(data_dir());
        try {
            start();
        } catch (...) {
            cleanup();
            throw;
        }
    }
    ~FilingService() { cleanup(); }
    FilingService(const FilingService&) = delete;
    FilingService& operator=(const FilingService&) = delete;

    const std::string& url() const { return url_; }
    int port() const { return port_; }
    std::string data_dir() const { return base_ + "/data"; }
    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    // Everything the server wrote on stderr so far (one line per request), over all its starts.
    std::string log() const { return read_file(base_ + "/service.log"); }

    // Starts the server again after stop(), on the same directory.
    void start()
    {
        if (pid_ > 0)
            return;
        int pipe_fds[2];
        if (pipe(pipe_fds) != 0)
            throw std::runtime_error("pipe failed");
        std::vector<std::string> args = {"serve", "--data", data_dir(), "--listen", "127.0.0.1:0"};
        args.insert(args.end(), serve_args_.begin(), serve_args_.end());
        const std::string log_path = base_ + "/service.log";
        pid_ = spawn(args, pipe_fds[1], log_path, true);
        close(pipe_fds[1]);
        const std::string line = read_line(pipe_fds[0], std::chrono::seconds(30));
        close(pipe_fds[0]);
        const std::size_t colon = line.rfind(':');
        if (line.rfind("http", 0) != 0 || colon == std::string::npos) {
            stop();
            throw std::runtime_error("the filing service did not start: " + log());
        }
        url_ = line;
        port_ = std::atoi(line.c_str() + colon + 1);
    }

    // SIGTERM (or the signal given, SIGKILL to test what a crash leaves), a bounded wait, SIGKILL if
    // need be; reaps the process. Returns its exit code (-1 when it was killed or not running).
    int stop(int signal_number = SIGTERM)
    {
        if (pid_ <= 0)
            return -1;
        kill(pid_, signal_number);
        const int status = reap(pid_, std::chrono::seconds(20));
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Runs `vellument-filing-service COMMAND --data DIR ARGS...` to its end (bounded).
    Result admin(const std::vector<std::string>& command_and_args) const
    {
        std::vector<std::string> args;
        if (!command_and_args.empty()) {
            args.push_back(command_and_args.front());
            args.push_back("--data");
            args.push_back(data_dir());
            args.insert(args.end(), command_and_args.begin() + 1, command_and_args.end());
        }
        return run(args);
    }

    // Runs the program with exactly these arguments (bounded), capturing its output.
    Result run(const std::vector<std::string>& args) const { return run_program(program(), args); }

    // Runs any program to its end (bounded), stdin /dev/null, with the environment's entries added.
    static Result run_program(const std::string& path, const std::vector<std::string>& args,
                              const std::map<std::string, std::string>& env = {})
    {
        char capture[] = "/tmp/vlm-run-XXXXXX";
        if (mkdtemp(capture) == nullptr)
            throw std::runtime_error("mkdtemp failed");
        const std::string out_path = std::string(capture) + "/out", err_path = std::string(capture) + "/err";
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const pid_t child = spawn(args, out, err_path, false, path.c_str(), env);
        close(out);
        const int status = reap(child, std::chrono::seconds(120));
        Result r;
        r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.out = read_file(out_path);
        r.err = read_file(err_path);
        std::error_code ec;
        std::filesystem::remove_all(capture, ec);
        return r;
    }

    // The text of a Settings.ini that points the library at this server (section DEBUG).
    std::string settings_ini() const { return "[DEBUG]\r\nTestMode=Y\r\nW2StatusServerAddress=" + url_ + "\r\n"; }
    // Writes that Settings.ini into the directory (the one VELLUMENT_APPDATA names).
    void write_settings(const std::string& appdata_dir) const
    {
        std::filesystem::create_directories(appdata_dir);
        std::ofstream(appdata_dir + "/Settings.ini", std::ios::binary | std::ios::trunc) << settings_ini();
    }

private:
    static std::string read_file(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // Starts the program with stdout on out_fd and stderr into err_path (appended when `append`),
    // the environment's entries added.
    static pid_t spawn(const std::vector<std::string>& args, int out_fd, const std::string& err_path, bool append,
                       const char* path = program(), const std::map<std::string, std::string>& env = {})
    {
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(path));
        for (const std::string& a : args)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        const pid_t parent = getpid();
        const pid_t child = fork();
        if (child < 0)
            throw std::runtime_error("fork failed");
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (getppid() != parent)
                _exit(127);
            const int in = open("/dev/null", O_RDONLY);
            const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC), 0600);
            dup2(in, 0);
            dup2(out_fd, 1);
            dup2(err, 2);
            for (const auto& entry : env)
                setenv(entry.first.c_str(), entry.second.c_str(), 1);
            execv(argv[0], argv.data());
            _exit(127);
        }
        return child;
    }

    // Waits for the child up to the limit, then kills it; returns its wait status.
    static int reap(pid_t child, std::chrono::seconds limit)
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                kill(child, SIGKILL);
                waitpid(child, &status, 0);
                return status;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return status;
    }

    // One line from the descriptor, or what came before the time ran out or the pipe closed.
    static std::string read_line(int fd, std::chrono::seconds limit)
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        std::string line;
        while (line.find('\n') == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline -
                                                                                    std::chrono::steady_clock::now());
            if (left.count() <= 0)
                break;
            pollfd p{fd, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(left.count())) <= 0)
                break;
            char buffer[256];
            const ssize_t n = read(fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            line.append(buffer, static_cast<std::size_t>(n));
        }
        return line.substr(0, line.find('\n'));
    }

    void cleanup()
    {
        stop();
        std::error_code ec;
        if (!base_.empty())
            std::filesystem::remove_all(base_, ec);
    }

    std::vector<std::string> serve_args_;
    std::string base_;
    std::string url_;
    int port_ = 0;
    pid_t pid_ = -1;
};

} // namespace vlmtest

#endif
