#include "run.hpp"

#include "files.hpp"
#include "lock_holder.hpp"
#include "mounts.hpp"
#include "numbers.hpp"
#include "state_files.hpp"
#include "lib/unique_fd.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace {

struct Credentials {
    uid_t uid = 0;
    gid_t gid = 0;
    std::optional<std::string> name; // for the supplementary groups
};

Credentials resolve_user(const std::string& user)
{
    const passwd* entry = nullptr;
    auto number = parse_number(user, 0xfffffffe);
    entry = number ? ::getpwuid(static_cast<uid_t>(*number)) : ::getpwnam(user.c_str());
    if (entry)
        return {entry->pw_uid, entry->pw_gid, std::string(entry->pw_name)};
    if (!number)
        throw std::runtime_error("no such user: " + user);
    return {static_cast<uid_t>(*number), static_cast<gid_t>(*number), std::nullopt};
}

void drop_to(const Credentials& who)
{
    if (who.name ? ::initgroups(who.name->c_str(), who.gid) != 0 : ::setgroups(0, nullptr) != 0)
        throw_errno("setgroups");
    if (::setgid(who.gid) != 0)
        throw_errno("setgid");
    if (::setuid(who.uid) != 0)
        throw_errno("setuid");
}

// PROGRAM as execvp would find it, looked up before the mounts hide anything.
std::string find_program(const std::string& program)
{
    if (program.find('/') != std::string::npos)
        return program;
    const char* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/local/bin:/usr/bin:/bin";
    std::size_t pos = 0;
    while (pos <= dirs.size()) {
        auto end = dirs.find(':', pos);
        if (end == std::string::npos)
            end = dirs.size();
        std::string dir = dirs.substr(pos, end - pos);
        std::string candidate = (dir.empty() ? "." : dir) + "/" + program;
        if (::access(candidate.c_str(), X_OK) == 0)
            return candidate;
        pos = end + 1;
    }
    throw std::runtime_error(program + ": command not found");
}

// The program stays the installed one even where the mounts cover its
// directory (/usr/sbin): it is opened now and executed through the
// descriptor. A script cannot be run that way (its interpreter needs a
// path), so it keeps its path.
struct Program {
    std::string path;
    UniqueFd fd;
};

Program open_program(const std::string& name)
{
    Program program{find_program(name), UniqueFd()};
    program.fd.reset(::open(program.path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!program.fd)
        throw_errno(program.path);
    char magic[2] = {};
    if (::pread(program.fd.get(), magic, 2, 0) == 2 && magic[0] == '#' && magic[1] == '!')
        program.fd.reset();
    return program;
}

std::string default_preload()
{
    std::string self = canonical("/proc/self/exe");
    return self.substr(0, self.rfind('/')) + "/libslotag-sim-preload.so";
}

// LIBRARY[:LIBRARY...], each made absolute (the program runs elsewhere);
// the simulator's library comes first, a test helper may follow it.
std::string canonical_list(const std::string& libraries)
{
    std::string out;
    std::size_t pos = 0;
    while (pos <= libraries.size()) {
        std::size_t end = libraries.find(':', pos);
        if (end == std::string::npos)
            end = libraries.size();
        if (end > pos)
            out += (out.empty() ? "" : ":") + canonical(libraries.substr(pos, end - pos));
        pos = end + 1;
    }
    return out;
}

std::string preload_list(const std::string& library)
{
    // Anything already preloaded (a sanitizer runtime) stays, after ours.
    const char* existing = std::getenv("LD_PRELOAD");
    if (existing && *existing)
        return library + ":" + existing;
    return library;
}

[[noreturn]] void exec_program(const Program& program, const std::vector<std::string>& command)
{
    std::vector<char*> argv;
    for (const auto& word : command)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    if (program.fd)
        ::fexecve(program.fd.get(), argv.data(), environ);
    else
        ::execv(program.path.c_str(), argv.data());
    int err = errno;
    std::fprintf(stderr, "slotag-sim: %s: %s\n", program.path.c_str(), std::strerror(err));
    ::_exit(err == ENOENT ? 127 : 126);
}

int wait_status(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            throw_errno("waitpid");
    }
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

} // namespace

RunOptions parse_run_options(const std::vector<std::string>& args)
{
    RunOptions options;
    std::size_t i = 0;
    auto value = [&](const std::string& option) -> std::string {
        if (i + 1 >= args.size())
            throw std::invalid_argument(option + " needs a value");
        return args[++i];
    };
    for (; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--") {
            options.command.assign(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
            break;
        }
        if (arg == "--user") {
            options.user = value(arg);
        } else if (arg == "--hold-lock") {
            std::string seconds = value(arg);
            auto n = parse_number(seconds, 86400);
            if (!n)
                throw std::invalid_argument("--hold-lock needs a number of seconds");
            options.hold_lock_seconds = static_cast<unsigned>(*n);
        } else if (arg == "--preload") {
            options.preload = value(arg);
        } else if (options.root.empty() && !arg.starts_with("-")) {
            options.root = arg;
        } else {
            throw std::invalid_argument("unexpected argument: " + arg);
        }
    }
    if (options.root.empty() || options.command.empty())
        throw std::invalid_argument("run needs ROOT and -- PROGRAM");
    return options;
}

int run_in_root(const RunOptions& options)
{
    const std::string root = canonical(options.root);
    if (!is_directory(root + "/state"))
        throw std::runtime_error(root + ": not a simulated root (no state directory)");
    const std::string preload = canonical_list(options.preload.value_or(default_preload()));
    const Program program = open_program(options.command.front());
    std::optional<Credentials> user;
    if (options.user)
        user = resolve_user(*options.user);

    enter_simulated_server(root);

    std::optional<LockHolder> holder;
    if (options.hold_lock_seconds) {
        holder.emplace(root + "/var/lock/.slotag.lock", *options.hold_lock_seconds);
        write_file(root + "/state/" + state::lock_holder_file, std::to_string(holder->pid()) + "\n");
    }

    std::fflush(nullptr);
    pid_t pid = ::fork();
    if (pid < 0)
        throw_errno("fork");
    if (pid == 0) {
        try {
            ::setenv("LD_PRELOAD", preload_list(preload).c_str(), 1);
            ::setenv(state::env_var, (root + "/state").c_str(), 1);
            if (user)
                drop_to(*user);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "slotag-sim: %s\n", e.what());
            ::_exit(125);
        }
        exec_program(program, options.command);
    }
    return wait_status(pid);
}
