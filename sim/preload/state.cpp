#include "preload/state.hpp"

#include "preload/real_calls.hpp"
#include "state_files.hpp"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

namespace preload {

const std::string& state_dir()
{
    static const std::string dir = [] {
        const char* value = std::getenv(state::env_var);
        return std::string(value ? value : "");
    }();
    return dir;
}

std::optional<std::string> read_state(const std::string& name)
{
    if (state_dir().empty())
        return std::nullopt;
    int fd = real::open((state_dir() + "/" + name).c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
        return std::nullopt;
    std::string content;
    char buffer[4096];
    ssize_t n;
    while ((n = real::read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR))
        if (n > 0)
            content.append(buffer, static_cast<std::size_t>(n));
    real::close(fd);
    return content;
}

bool write_state(const std::string& name, const std::string& content)
{
    if (state_dir().empty())
        return false;
    int fd = real::open((state_dir() + "/" + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                        0644);
    if (fd < 0)
        return false;
    std::size_t done = 0;
    while (done < content.size()) {
        ssize_t n = real::write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
    real::close(fd);
    return done == content.size();
}

std::vector<std::string> list_state(const std::string& name)
{
    std::vector<std::string> names;
    if (state_dir().empty())
        return names;
    DIR* dir = real::opendir((state_dir() + "/" + name).c_str());
    if (!dir)
        return names;
    while (const dirent64* entry = real::readdir64(dir)) {
        std::string entry_name = entry->d_name;
        if (entry_name != "." && entry_name != "..")
            names.push_back(std::move(entry_name));
    }
    real::closedir(dir);
    return names;
}

} // namespace preload
