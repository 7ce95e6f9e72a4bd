// The child command runner. One pipe carries both output streams of the
// child, so the reader sees its lines in the order they were written; the
// end of input comes when the child's copies of the write end are gone.
#include "resolve/child_command.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/unique_fd.h"

namespace {

// Closes every descriptor from 3 up, so that nothing of the tool (the
// lock, a device) outlives it in the child and the pipe's end of input is
// not held back.
void close_from_3()
{
    int table_size = getdtablesize();
    if (table_size <= 3)
        return;
    if (close_range(3, static_cast<unsigned>(table_size - 1), 0) == 0)
        return;
    for (int fd = 3; fd < table_size; fd++)
        close(fd);
}

[[noreturn]] void run_child(const char *path, char *const argv[], int read_end, int write_end)
{
    close(read_end);
    int null_fd = open("/dev/null", O_RDWR);
    if (null_fd == -1)
        _exit(CHILD_NO_DEV_NULL);
    if (dup2(null_fd, STDIN_FILENO) == -1)
        _exit(CHILD_NO_STDIN);
    if (null_fd != STDIN_FILENO)
        close(null_fd);
    if (dup2(write_end, STDOUT_FILENO) == -1)
        _exit(CHILD_NO_STDOUT);
    if (dup2(write_end, STDERR_FILENO) == -1)
        _exit(CHILD_NO_STDERR);
    close(write_end);  // never 1 or 2: the parent refused such a pipe
    close_from_3();
    execv(path, argv);
    _exit(CHILD_EXEC_FAILED);
}

// The errno that tells how the child ended, or 0 for a normal exit.
int judge_wait_status(int status)
{
    int low7 = status & 0x7f;
    int low8 = status & 0xff;
    if (low7 != 0 && low7 != 0x7f)
        return ECANCELED;  // killed by a signal
    if (low8 == 0x7f)
        return ESTALE;     // stopped
    if (low8 == 0x80 || low8 == 0xff)
        return EFAULT;     // no status a child can end with
    return 0;
}

// Holds SIGCHLD at its default disposition for the life of one child. A
// parent that ignores SIGCHLD passes that on across exec, and with it the
// kernel reaps children by itself: the wait would then end with ECHILD
// instead of the child's status. The child inherits the default too, so the
// query command does not start with a disposition it did not ask for.
class DefaultChildSignal {
public:
    DefaultChildSignal()
    {
        struct sigaction dfl = {};
        dfl.sa_handler = SIG_DFL;
        sigemptyset(&dfl.sa_mask);
        saved_ = sigaction(SIGCHLD, &dfl, &previous_) == 0;
    }
    ~DefaultChildSignal()
    {
        if (saved_) {
            int err = errno;
            sigaction(SIGCHLD, &previous_, nullptr);
            errno = err;
        }
    }
    DefaultChildSignal(const DefaultChildSignal &) = delete;
    DefaultChildSignal &operator=(const DefaultChildSignal &) = delete;

private:
    struct sigaction previous_ = {};
    bool saved_ = false;
};

} // namespace

int exec_child_command(const char *path, char *const argv[], int32_t timeout_ms,
                       const LineReaderCallbacks *callbacks, int32_t *status_out,
                       uint32_t *failed_out)
{
    const int saved_errno = errno;
    auto fail = [failed_out](int cause) {
        if (failed_out)
            *failed_out = 1;
        if (cause != 0)
            errno = cause;
        return -1;
    };

    int ends[2];
    if (pipe(ends) == -1)
        return fail(errno);
    UniqueFd read_end(ends[0]);
    UniqueFd write_end(ends[1]);
    // With 0, 1 or 2 free the pipe lands there, and the child's dup2 onto
    // its standard descriptors would tangle the pipe with /dev/null.
    if (ends[0] <= STDERR_FILENO || ends[1] <= STDERR_FILENO)
        return fail(EINVAL);

    DefaultChildSignal child_signal;
    pid_t pid = fork();
    if (pid == -1)
        return fail(errno);
    if (pid == 0)
        run_child(path, argv, ends[0], ends[1]);

    // The parent's copy would keep the end of input from ever coming.
    write_end.reset();
    LineReaderStatus reader_status = 0;
    if (read_lines(nullptr, read_end.get(), timeout_ms, callbacks, &reader_status) == -1) {
        int cause = errno;
        // No grace period: a child that missed its time-out or whose
        // output was refused has nothing more to say.
        kill(pid, SIGTERM);
        kill(pid, SIGKILL);
        read_end.reset();
        return fail(cause);
    }
    read_end.reset();

    int status = 0;
    if (waitpid(pid, &status, WUNTRACED) == -1)
        return fail(errno);
    if (status_out)
        *status_out = status;
    if (int cause = judge_wait_status(status))
        return fail(cause);
    errno = saved_errno;
    return 0;
}
