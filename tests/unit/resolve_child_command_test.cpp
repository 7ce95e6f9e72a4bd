// The child command runner with small shell scripts as children: output
// order, time-out and killing, the judgement of the wait status, and the
// descriptors the child is given.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "resolve/child_command.h"
#include "table/token_list.h"

namespace {

constexpr int32_t UNTOUCHED = 0x5a5a;

struct Outcome {
    int result;
    int err;
    int32_t status = UNTOUCHED;
    uint32_t failed = 0;
    std::vector<std::string> words;  // "\n" for each end of line
};

int failing_end(void *) { return -1; }

Outcome run(const char *path, const char *script, int32_t timeout_ms = 10000,
            int (*end)(void *) = nullptr)
{
    TokenList tokens;
    TokenCollector collector;
    collector.list = &tokens;
    LineReaderCallbacks callbacks = {token_list_init, token_list_append, end, &collector};
    const char *argv[] = {path, "-c", script, nullptr};
    Outcome o;
    errno = EDOM;
    o.result = exec_child_command(path, const_cast<char *const *>(argv), timeout_ms, &callbacks,
                                  &o.status, &o.failed);
    o.err = errno;
    for (const LineToken &t : tokens)
        o.words.push_back(t.text);
    return o;
}

Outcome sh(const char *script, int32_t timeout_ms = 10000, int (*end)(void *) = nullptr)
{
    return run("/bin/sh", script, timeout_ms, end);
}

using Words = std::vector<std::string>;

TEST(ResolveChildCommand, ExitCodesAreForTheCallerToJudge)
{
    Outcome missing = run("/nonexistent/vdsstat", "");
    EXPECT_EQ(missing.result, 0);
    EXPECT_EQ(missing.status, 0x7f00);
    EXPECT_TRUE(missing.words.empty());

    Outcome three = sh("echo out; exit 3");
    EXPECT_EQ(three.result, 0);
    EXPECT_EQ(three.status, 0x0300);
    EXPECT_EQ(three.err, EDOM);  // errno unchanged on success
    EXPECT_EQ(three.failed, 0u);
    EXPECT_EQ(three.words, (Words{"out", "\n"}));
}

TEST(ResolveChildCommand, StandardErrorAndOutputArriveInTheOrderWritten)
{
    Outcome o = sh("echo first to err >&2; echo then out; echo last err >&2");
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.words, (Words{"first", "to", "err", "\n", "then", "out", "\n", "last", "err",
                              "\n"}));
}

TEST(ResolveChildCommand, ChildReadsDevNullAndInheritsNoDescriptorAbove2)
{
    // Opened without close-on-exec, so only the runner can keep it from the
    // child.
    int leaked = open("/dev/zero", O_RDONLY);
    ASSERT_GT(leaked, 2);
    std::string script = "readlink /proc/self/fd/0; if [ -e /proc/$$/fd/" +
                         std::to_string(leaked) + " ]; then echo leaked; else echo closed; fi";
    Outcome o = sh(script.c_str());
    close(leaked);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.words, (Words{"/dev/null", "\n", "closed", "\n"}));
}

TEST(ResolveChildCommand, SilentChildIsKilledAfterTheTimeOut)
{
    auto start = std::chrono::steady_clock::now();
    Outcome o = sh("echo $$; exec sleep 30", 300);
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(o.result, -1);
    EXPECT_EQ(o.err, ETIMEDOUT);
    EXPECT_EQ(o.failed, 1u);
    EXPECT_EQ(o.status, UNTOUCHED);
    EXPECT_LT(elapsed, std::chrono::seconds(5));
    // The child was signalled but left for the caller's process to reap.
    ASSERT_EQ(o.words.size(), 2u);
    pid_t child = std::stoi(o.words[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(ResolveChildCommand, RefusedOutputKillsAndDoesNotReap)
{
    Outcome o = sh("echo $$", 10000, failing_end);
    EXPECT_EQ(o.result, -1);
    EXPECT_EQ(o.failed, 1u);
    EXPECT_EQ(o.status, UNTOUCHED);
    ASSERT_FALSE(o.words.empty());
    pid_t child = std::stoi(o.words[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);  // still there to be reaped
}

TEST(ResolveChildCommand, SignalsAndStopsFailWithTheWaitStatus)
{
    Outcome segv = sh("kill -SEGV $$");
    EXPECT_EQ(segv.result, -1);
    EXPECT_EQ(segv.err, ECANCELED);
    EXPECT_EQ(segv.failed, 1u);
    EXPECT_EQ(segv.status & 0x7f, SIGSEGV);

    // The output must end before the stop, or the reader would wait for it.
    Outcome stop = sh("echo $$; exec >&- 2>&-; kill -STOP $$");
    EXPECT_EQ(stop.result, -1);
    EXPECT_EQ(stop.err, ESTALE);
    EXPECT_EQ(stop.status, (SIGSTOP << 8) | 0x7f);
    ASSERT_FALSE(stop.words.empty());
    pid_t child = std::stoi(stop.words[0]);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

// Run with 0, 1 and 2 closed: the pipe takes two of them. 0 when the call
// was refused without starting a child.
int run_without_standard_descriptors()
{
    close(0);
    close(1);
    close(2);
    uint32_t failed = 0;
    int32_t status = UNTOUCHED;
    const char *argv[] = {"/bin/echo", "x", nullptr};
    TokenList tokens;
    TokenCollector collector;
    collector.list = &tokens;
    LineReaderCallbacks callbacks = {nullptr, token_list_append, nullptr, &collector};
    int r = exec_child_command("/bin/echo", const_cast<char *const *>(argv), 1000, &callbacks,
                               &status, &failed);
    bool refused = r == -1 && errno == EINVAL && failed == 1 && status == UNTOUCHED &&
                   tokens.empty() && waitpid(-1, nullptr, WNOHANG) == -1;
    return refused ? 0 : 1;
}

TEST(ResolveChildCommand, PipeOnStandardDescriptorsIsRefused)
{
    EXPECT_EXIT(_exit(run_without_standard_descriptors()), testing::ExitedWithCode(0), "");
}

} // namespace

// A parent that ignores SIGCHLD passes that on across exec; the kernel would
// then reap the child itself and the wait end with ECHILD.
TEST(ResolveChildCommand, ChildIsWaitedForWhenSigchldIsIgnoredWhichIsThenRestored)
{
    struct sigaction ignore = {}, previous = {}, after = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGCHLD, &ignore, &previous), 0);
    Outcome o = sh("echo x; exit 3");
    sigaction(SIGCHLD, nullptr, &after);
    sigaction(SIGCHLD, &previous, nullptr);
    EXPECT_EQ(o.result, 0);
    EXPECT_EQ(o.status, 0x300);
    EXPECT_EQ(o.words, (Words{"x", "\n"}));
    EXPECT_EQ(after.sa_handler, SIG_IGN);
}
