// Reserving closed standard descriptors: run in a child process, which can
// close its own 0, 1 and 2 without disturbing the test runner.
#include <cerrno>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/core/startup.h"

namespace {

// The access mode of fd, or -1 when it is closed.
int access_mode(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    return flags == -1 ? -1 : flags & O_ACCMODE;
}

// Runs body in a child; its exit code is the number of the first check
// that failed (0: all passed).
int in_child(int (*body)())
{
    pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

TEST(CliStartup, ClosedStandardDescriptorsAreReservedAgainstTheirUse)
{
    EXPECT_EQ(in_child([] {
                  close(0);
                  close(1);
                  close(2);
                  errno = EDOM;
                  reserve_standard_descriptors();
                  if (errno != EDOM)
                      return 1;
                  if (access_mode(0) != O_WRONLY || access_mode(1) != O_RDONLY ||
                      access_mode(2) != O_RDONLY)
                      return 2;
                  char c;
                  if (write(1, "x", 1) != -1 || errno != EBADF)
                      return 3;
                  if (read(0, &c, 1) != -1 || errno != EBADF)
                      return 4;
                  // The next open gets a number above the standard ones.
                  int fd = open("/dev/null", O_RDONLY);
                  return fd > 2 ? 0 : 5;
              }),
              0);
}

TEST(CliStartup, OpenDescriptorsAreLeftAsTheyAre)
{
    EXPECT_EQ(in_child([] {
                  int out = open("/dev/null", O_WRONLY);
                  if (dup2(out, 1) != 1)
                      return 1;
                  close(out);
                  close(2);
                  reserve_standard_descriptors();
                  // 1 stays writable; only the closed 2 is reserved.
                  if (access_mode(1) != O_WRONLY || access_mode(2) != O_RDONLY)
                      return 2;
                  return write(1, "x", 1) == 1 ? 0 : 3;
              }),
              0);
}

} // namespace
