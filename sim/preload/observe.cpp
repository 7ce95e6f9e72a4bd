#include "preload/observe.hpp"

#include "numbers.hpp"
#include "preload/real_calls.hpp"
#include "preload/state.hpp"
#include "state_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sstream>
#include <vector>

namespace preload {

namespace {

std::string descriptor_path(int fd)
{
    char target[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
    if (n <= 0)
        return "?";
    return std::string(target, static_cast<std::size_t>(n));
}

std::string directory_names(const std::string& path)
{
    std::vector<std::string> names;
    if (DIR* dir = real::opendir(path.c_str())) {
        while (const dirent64* entry = real::readdir64(dir)) {
            std::string name = entry->d_name;
            if (name != "." && name != "..")
                names.push_back(std::move(name));
        }
        real::closedir(dir);
    }
    std::sort(names.begin(), names.end());
    std::string out;
    for (const auto& name : names)
        out += " " + name;
    return out;
}

} // namespace

void record_fsync(int fd, int result)
{
    if (state_dir().empty())
        return;
    const int saved = errno;
    // Only when the test made the file: nothing is written otherwise.
    int log = real::open((state_dir() + "/" + state::fsync_log_file).c_str(),
                         O_WRONLY | O_APPEND | O_CLOEXEC, 0);
    if (log >= 0) {
        struct stat st{};
        const std::string path = descriptor_path(fd);
        std::string line = ::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)
                               ? "directory " + path + ":" + directory_names(path)
                               : "file " + path;
        if (result != 0)
            line += " (failed)";
        line += "\n";
        (void)real::write(log, line.data(), line.size());
        real::close(log);
    }
    errno = saved;
}

int fsync_failure(int fd)
{
    auto text = read_state(state::fsync_error_file);
    if (!text)
        return 0;
    struct stat st{};
    if (::fstat(fd, &st) != 0)
        return 0;
    const std::string kind = S_ISDIR(st.st_mode) ? "directory" : "file";
    for (const auto& line : state::content_lines(*text)) {
        std::istringstream words(line);
        std::string what, err;
        if (words >> what >> err && what == kind)
            if (auto number = parse_errno(err))
                return *number;
    }
    return 0;
}

std::optional<ListingFailure> listing_failure(const std::string& directory)
{
    auto text = read_state(state::readdir_error_file);
    if (!text)
        return std::nullopt;
    for (const auto& line : state::content_lines(*text)) {
        std::istringstream words(line);
        std::string path, err, count;
        if (!(words >> path >> err >> count) || path != directory)
            continue;
        auto number = parse_errno(err);
        auto after = parse_number(count, 1u << 20);
        if (number && after)
            return ListingFailure{static_cast<std::size_t>(*after), *number};
    }
    return std::nullopt;
}

} // namespace preload
