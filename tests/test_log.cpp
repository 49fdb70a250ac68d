#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <vellument/Ostrel_Error.h>
#include <vellument/Ostrel_Log.h>

#include "Ostrel/LogMacros.h"
#include "test_util.h"

extern char** environ;

namespace fs = std::filesystem;
using Ostrel::Log;

namespace {

struct Capture {
    struct Entry {
        Log::Level level;
        std::string file;
        int line;
        std::string function;
        std::string text;
    };
    std::mutex mutex;
    std::vector<Entry> lines;

    static void Sink(void* context, Log::Level level, const char* file, int line, const char* function,
                     const char* text)
    {
        auto* self = static_cast<Capture*>(context);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->lines.push_back({level, file, line, function, text});
    }
};

// The lines of a log file with their "YYYY-MM-DD HH:MM:SS.mmm " stamp checked and cut off;
// a line with a bad stamp comes back whole, prefixed with "BAD STAMP: ".
std::vector<std::string> Bodies(const std::string& path)
{
    static const std::string stamp = "dddd-dd-dd dd:dd:dd.ddd ";
    std::vector<std::string> bodies;
    std::istringstream in(testutil::read_file(path));
    for (std::string line; std::getline(in, line);) {
        bool ok = line.size() >= stamp.size();
        for (std::size_t i = 0; ok && i < stamp.size(); ++i)
            ok = stamp[i] == 'd' ? (line[i] >= '0' && line[i] <= '9') : line[i] == stamp[i];
        bodies.push_back(ok ? line.substr(stamp.size()) : "BAD STAMP: " + line);
    }
    return bodies;
}

// Each test starts from the default file sink, no log files and the default threshold.
class LogTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Log::SetSink(nullptr, nullptr);
        Log::SetMessageBoxHandler(nullptr, nullptr);
        Log::SetLevel(3);
        log_path = Log::GetLogFilePath();
        ASSERT_FALSE(log_path.empty());
        RemoveLogs();
    }
    void TearDown() override
    {
        SetUp();
    }
    void RemoveLogs()
    {
        std::error_code ec;
        fs::remove(log_path, ec);
        for (int n = 1; n <= 5; ++n)
            fs::remove(Rotated(n), ec);
    }
    std::string Rotated(int n) const
    {
        return fs::path(log_path).parent_path().string() + "/Vellument." + std::to_string(n) + ".log";
    }

    std::string log_path;
};

} // namespace

TEST_F(LogTest, FileLineCarriesTimeLevelSourceAndFunction)
{
    VLOG(3, "[Test] hello %d %s\n", 42, "world");
    VLOG(2, "[Test] no line feed");
    const std::string line = std::to_string(__LINE__ - 1);
    std::string prev = std::to_string(__LINE__ - 3);
    EXPECT_EQ(Bodies(log_path), (std::vector<std::string>{
                                    "[L3] test_log.cpp:" + prev + " TestBody: [Test] hello 42 world",
                                    "[L2] test_log.cpp:" + line + " TestBody: [Test] no line feed"}));
    // One line feed per message, whether the text brought one or not.
    EXPECT_EQ(testutil::read_file(log_path).find("\n\n"), std::string::npos);
}

TEST_F(LogTest, SinkReceivesWhatPassesTheThreshold)
{
    Capture capture;
    Log::SetSink(&Capture::Sink, &capture);
    Log::SetLevel(2);
    EXPECT_EQ(Log::GetLevel(), 2);
    Log::LogMessage("/src\\Vellument.cpp", 77, "open", Log::LEVEL_INFO, "[Vellument] dropped\n");
    Log::LogMessage("/src\\Vellument.cpp", 78, "open", Log::LEVEL_WARNING, "[Vellument] kept %u\n", 7u);
    Log::LogMessage("/src\\Vellument.cpp", 79, "open", Log::LEVEL_FAILURE, "[Vellument] kept too\n");
    Log::SetLevel(0);
    Log::LogMessage("f.cpp", 1, "g", Log::LEVEL_FAILURE, "[X] nothing passes level 0\n");

    ASSERT_EQ(capture.lines.size(), 2u);
    const Capture::Entry& e = capture.lines[0];
    EXPECT_EQ(e.level, Log::LEVEL_WARNING);
    EXPECT_EQ(e.file, "/src\\Vellument.cpp");
    EXPECT_EQ(e.line, 78);
    EXPECT_EQ(e.function, "open");
    EXPECT_EQ(e.text, "[Vellument] kept 7\n");
    EXPECT_EQ(capture.lines[1].level, Log::LEVEL_FAILURE);
    EXPECT_FALSE(fs::exists(log_path));  // a host's sink replaces the file

    Log::SetSink(nullptr, nullptr);
    Log::SetLevel(3);
    VLOG(3, "[X] back to the file\n");
    EXPECT_NE(testutil::read_file(log_path).find("back to the file"), std::string::npos);
}

TEST_F(LogTest, LongMessagesBadArgumentsAndReentrantSinksAreSafe)
{
    Capture capture;
    Log::SetSink(&Capture::Sink, &capture);
    const std::string big(200000, 'x');
    Log::LogMessage("f.cpp", 1, "g", Log::LEVEL_INFO, "[Big] <%s>", big.c_str());
    Log::LogMessage("f.cpp", 2, "g", Log::LEVEL_INFO, nullptr);
    Log::LogMessage(nullptr, 3, nullptr, Log::LEVEL_INFO, "[Null] names");
    Log::msgBoxReturn(nullptr, 4, nullptr, Log::LEVEL_INFO, nullptr, 0);
    ASSERT_GE(capture.lines.size(), 3u);
    EXPECT_EQ(capture.lines[0].text, "[Big] <" + big + ">");
    EXPECT_EQ(capture.lines[2].text, "[Null] names");

    Log::SetSink(nullptr, nullptr);
    Log::LogMessage("f.cpp", 1, "g", Log::LEVEL_INFO, "[Big] <%s>", big.c_str());
    EXPECT_NE(testutil::read_file(log_path).find("[Big] <" + big + ">\n"), std::string::npos);

    // A sink that logs and changes the sink itself neither deadlocks nor recurses.
    static int calls = 0;
    Log::SetSink(
        [](void*, Log::Level, const char*, int, const char*, const char*) {
            ++calls;
            VLOG(1, "[Sink] from inside\n");
            Log::SetSink(nullptr, nullptr);
        },
        nullptr);
    VLOG(1, "[Test] outer\n");
    EXPECT_EQ(calls, 1);
}

TEST_F(LogTest, LoggingKeepsErrnoAndTheLastError)
{
    Capture capture;
    Log::SetSink(&Capture::Sink, &capture);
    Ostrel::Error::SetLastError(Ostrel::Error::FILE_NOT_FOUND);
    errno = ENOENT;
    Ostrel::Error::LogSystemError(Ostrel::Error::LEVEL_DEFAULT);
    EXPECT_EQ(Ostrel::Error::GetLastError(), 2u);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_EQ(capture.lines.size(), 1u);
    EXPECT_EQ(capture.lines[0].text, "[System] Error 2: " + Ostrel::Error::GetErrorText(2));

    // The file sink opens and writes files: none of that may leak into the caller's state.
    Log::SetSink(nullptr, nullptr);
    Ostrel::Error::SetLastError(Ostrel::Error::PATH_NOT_FOUND);
    errno = EACCES;
    VLOG(1, "[Test] after a failure\n");
    EXPECT_EQ(Ostrel::Error::GetLastError(), 3u);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(LogTest, MessageBoxHandlerGetsTheTextAndGivesTheButton)
{
    struct Box {
        std::string text;
        unsigned int style = 99;
        static int Show(void* context, const char* text, unsigned int style)
        {
            static_cast<Box*>(context)->text = text;
            static_cast<Box*>(context)->style = style;
            return Log::BUTTON_CANCEL;
        }
    } box;
    Log::SetMessageBoxHandler(&Box::Show, &box);
    EXPECT_EQ(Log::msgBoxReturn("f.cpp", 5, "save", Log::LEVEL_FAILURE, "Could not save 100% of it", 0),
              Log::BUTTON_CANCEL);
    EXPECT_EQ(box.text, "Could not save 100% of it");  // ready text, not a format
    EXPECT_EQ(box.style, 0u);
    Log::LogAndShowMessage("f.cpp", 6, "read", Log::LEVEL_WARNING, "[Decision Tree] missing %s\n", "LocalList");
    EXPECT_EQ(box.text, "[Decision Tree] missing LocalList\n");
    EXPECT_EQ(Bodies(log_path), (std::vector<std::string>{"[L1] f.cpp:5 save: Could not save 100% of it",
                                                          "[L2] f.cpp:6 read: [Decision Tree] missing LocalList"}));

    // The default box writes to stderr and answers OK.
    Log::SetMessageBoxHandler(nullptr, nullptr);
    ::testing::internal::CaptureStderr();
    int button = Log::msgBoxReturn("f.cpp", 7, "save", Log::LEVEL_FAILURE, "Save failed", 0);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Save failed\n");
    EXPECT_EQ(button, Log::BUTTON_OK);
}

TEST_F(LogTest, ManyThreadsWriteWholeLines)
{
    const int threads = 8, per_thread = 400;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t] {
            for (int i = 0; i < per_thread; ++i)
                Log::LogMessage("mt.cpp", i, "worker", Log::LEVEL_INFO, "[MT] %d %d %s\n", t, i,
                                std::string(static_cast<std::size_t>(i % 50) * 20, 'p').c_str());
        });
    }
    for (auto& w : workers)
        w.join();

    std::set<std::pair<int, int>> seen;
    for (const std::string& body : Bodies(log_path)) {
        int line = -1, t = -1, i = -1, end = 0;
        ASSERT_EQ(std::sscanf(body.c_str(), "[L3] mt.cpp:%d worker: [MT] %d %d %n", &line, &t, &i, &end), 3)
            << body.substr(0, 200);
        EXPECT_EQ(line, i);
        EXPECT_EQ(body.substr(static_cast<std::size_t>(end)), std::string(static_cast<std::size_t>(i % 50) * 20, 'p'));
        seen.insert({t, i});
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(threads * per_thread));
}

TEST_F(LogTest, FileIsRotatedBySizeKeepingThreeOld)
{
    const std::string chunk(64 * 1024, 'r');
    const std::uintmax_t limit = 5u * 1024 * 1024, slack = 70 * 1024;
    // About 5.3 MB per round: each round passes the limit once.
    for (int round = 0; round < 5; ++round)
        for (int i = 0; i < 85; ++i)
            Log::LogMessage("rot.cpp", round, "fill", Log::LEVEL_INFO, "[Rot] %d %s\n", round, chunk.c_str());
    VLOG(3, "[Rot] last\n");

    EXPECT_FALSE(fs::exists(Rotated(4)));
    EXPECT_LT(fs::file_size(log_path), limit + slack);
    for (int n = 1; n <= 3; ++n) {
        ASSERT_TRUE(fs::exists(Rotated(n))) << n;
        EXPECT_GE(fs::file_size(Rotated(n)), limit) << n;
        EXPECT_LT(fs::file_size(Rotated(n)), limit + slack) << n;
    }
    EXPECT_NE(testutil::read_file(log_path).find("[Rot] last\n"), std::string::npos);
    // Newest first: the first old file holds later rounds than the third.
    const std::string first = testutil::read_file(Rotated(1)), third = testutil::read_file(Rotated(3));
    EXPECT_GT(std::stoi(first.substr(first.find("[Rot] ") + 6)), std::stoi(third.substr(third.find("[Rot] ") + 6)));
}

TEST_F(LogTest, ARemovedLogFileIsMadeAgain)
{
    VLOG(3, "[Test] one\n");
    ASSERT_TRUE(fs::exists(log_path));
    fs::remove(log_path);
    VLOG(3, "[Test] two\n");
    ASSERT_EQ(Bodies(log_path).size(), 1u);
    EXPECT_NE(Bodies(log_path)[0].find("[Test] two"), std::string::npos);
}

// Runs only in a child process started by the next test, with a fresh environment.
TEST(LogEnvironment, ChildReadsThreshold)
{
    const char* expected = std::getenv("VLM_TEST_EXPECT_LEVEL");
    if (expected == nullptr)
        GTEST_SKIP() << "runs as the child of ThresholdComesFromTheEnvironment";
    EXPECT_EQ(Log::GetLevel(), std::atoi(expected));
}

TEST(LogEnvironment, ThresholdComesFromTheEnvironment)
{
    if (std::getenv("VLM_TEST_EXPECT_LEVEL") != nullptr)
        GTEST_SKIP();
    const std::pair<const char*, int> cases[] = {{nullptr, 3}, {"1", 1}, {"4", 4}, {" 2 ", 2}, {"0", 3},
                                                 {"5", 3},     {"2x", 3}, {"", 3}, {"-1", 3}};
    std::string exe = fs::read_symlink("/proc/self/exe").string();
    std::string filter = "--gtest_filter=LogEnvironment.ChildReadsThreshold";
    char* argv[] = {exe.data(), filter.data(), nullptr};
    for (const auto& c : cases) {
        std::vector<std::string> env;
        for (char** e = environ; *e != nullptr; ++e)
            if (std::string(*e).rfind("VELLUMENT_LOG_LEVEL=", 0) != 0 && std::string(*e).rfind("GTEST_", 0) != 0)
                env.push_back(*e);
        if (c.first)
            env.push_back(std::string("VELLUMENT_LOG_LEVEL=") + c.first);
        env.push_back("VLM_TEST_EXPECT_LEVEL=" + std::to_string(c.second));
        std::vector<char*> envp;
        for (auto& s : env)
            envp.push_back(s.data());
        envp.push_back(nullptr);

        posix_spawn_file_actions_t quiet;
        posix_spawn_file_actions_init(&quiet);
        posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
        pid_t pid;
        int rc = posix_spawn(&pid, exe.c_str(), &quiet, nullptr, argv, envp.data());
        posix_spawn_file_actions_destroy(&quiet);
        ASSERT_EQ(rc, 0);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "VELLUMENT_LOG_LEVEL=" << (c.first ? c.first : "(unset)");
    }
}
