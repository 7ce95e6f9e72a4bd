// Path components as views: the callers take the parent of a parent and
// the last component of sysfs links and device paths, and keep no copies.
#include "resolve/path_name.h"

namespace {

std::string_view without_trailing_slashes(std::string_view path)
{
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

} // namespace

std::string_view path_dirname(std::string_view path)
{
    path = without_trailing_slashes(path);
    size_t slash = path.rfind('/');
    if (slash == std::string_view::npos)
        return ".";
    path = without_trailing_slashes(path.substr(0, slash));
    return path.empty() ? "/" : path;
}

std::string_view path_basename(std::string_view path)
{
    if (path.empty())
        return ".";
    path = without_trailing_slashes(path);
    if (path == "/")
        return path;
    size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}
