#include "files.hpp"

#include "lib/unique_fd.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>

void throw_errno(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

namespace {

void write_bytes(const std::string& path, const void* data, std::size_t size, mode_t mode)
{
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd)
        throw_errno(path);
    const auto* p = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = ::write(fd.get(), p, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw_errno(path);
        }
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    // The mode asked for, whatever the umask.
    if (::fchmod(fd.get(), mode) != 0)
        throw_errno(path);
}

} // namespace

void write_file(const std::string& path, std::string_view content, mode_t mode)
{
    write_bytes(path, content.data(), content.size(), mode);
}

void write_file(const std::string& path, const std::vector<std::uint8_t>& content, mode_t mode)
{
    write_bytes(path, content.data(), content.size(), mode);
}

std::optional<std::string> read_file(const std::string& path)
{
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        if (errno == ENOENT)
            return std::nullopt;
        throw_errno(path);
    }
    std::string content;
    char buffer[8192];
    for (;;) {
        ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            throw_errno(path);
        }
        if (n == 0)
            break;
        content.append(buffer, static_cast<std::size_t>(n));
    }
    return content;
}

void make_dirs(const std::string& path, mode_t mode)
{
    for (std::size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/')
            continue;
        std::string part = path.substr(0, pos);
        if (::mkdir(part.c_str(), mode) == 0) {
            if (::chmod(part.c_str(), mode) != 0)
                throw_errno(part);
        } else if (errno != EEXIST || !is_directory(part)) {
            throw_errno(part);
        }
    }
}

void make_symlink(const std::string& target, const std::string& link)
{
    if (::symlink(target.c_str(), link.c_str()) != 0)
        throw_errno(link);
}

bool exists(const std::string& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

bool is_directory(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> list_dir(const std::string& path)
{
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(path.c_str()), ::closedir);
    if (!dir)
        throw_errno(path);
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(dir.get())) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string canonical(const std::string& path)
{
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                          &std::free);
    if (!resolved)
        throw_errno(path);
    return resolved.get();
}
