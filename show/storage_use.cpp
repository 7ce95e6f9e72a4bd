// Disks are found through /sys/block and handed to the add mode's resolver
// one by one; the rules that tie a disk to an adapter are all there.
#include "show/storage_use.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "lib/unique_dir.h"
#include "lib/unique_fd.h"
#include "resolve/targets.h"

namespace {

constexpr const char *SYS_BLOCK = "/sys/block/";
constexpr const char *VDS_DIR = "/dev/vdsdev";

// The whole of a small file (sysfs, /proc), or false.
bool read_text(const std::string &path, std::string &text)
{
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd)
        return false;
    text.clear();
    char buf[4096];
    for (;;) {
        ssize_t n = read(fd.get(), buf, sizeof buf);
        if (n == -1 && errno == EINTR)
            continue;
        if (n <= 0)
            return n == 0;
        text.append(buf, static_cast<size_t>(n));
    }
}

std::string first_line(const std::string &path)
{
    std::string text;
    if (!read_text(path, text))
        return "";
    return text.substr(0, text.find('\n'));
}

// The names in a directory, sorted; none when it cannot be read.
std::vector<std::string> names_in(const std::string &path)
{
    std::vector<std::string> names;
    UniqueDir dir(opendir(path.c_str()));
    while (dir) {
        const dirent *e = readdir(dir.get());
        if (!e)
            break;
        if (e->d_name[0] != '.')
            names.emplace_back(e->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// A "MAJOR:MINOR" text, or 0.
dev_t parse_dev(const std::string &text)
{
    unsigned major, minor;
    return sscanf(text.c_str(), "%u:%u", &major, &minor) == 2 ? makedev(major, minor) : 0;
}

bool exists(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

// The kernel escapes blanks and backslashes in mount points as \ooo.
std::string unescape(const std::string &field)
{
    std::string out;
    for (size_t i = 0; i < field.size(); i++) {
        unsigned code;
        if (field[i] == '\\' && i + 3 < field.size() &&
            sscanf(field.c_str() + i + 1, "%3o", &code) == 1) {
            out += static_cast<char>(code);
            i += 3;
        } else {
            out += field[i];
        }
    }
    return out;
}

// The holders of sysfs directory dir (a disk's or a partition's) that
// the kernel lists, as uses built on `on`.
void add_holders(const std::string &dir, const std::string &on, std::vector<BlockUse> &out)
{
    for (const std::string &h : names_in(dir + "/holders")) {
        // md on a disk and its partition: one device
        if (std::any_of(out.begin(), out.end(), [&h](const BlockUse &b) { return b.name == h; }))
            continue;
        BlockUse b;
        b.name = h;
        b.on = on;
        b.dm_name = first_line(SYS_BLOCK + h + "/dm/name");
        b.dev = parse_dev(first_line(SYS_BLOCK + h + "/dev"));
        out.push_back(b);
    }
}

DiskUse disk_use(const std::string &name, std::vector<TargetAdapter> &&paths)
{
    DiskUse d;
    d.name = name;
    for (TargetAdapter &p : paths)
        d.adapters.push_back(std::move(p.bus_id));
    // The multipath device is the kvph directory its sysfs link enters.
    char target[512];
    ssize_t n = readlink((SYS_BLOCK + name + "/device").c_str(), target, sizeof target - 1);
    if (n > 0) {
        target[n] = '\0';
        if (const char *kvph = strstr(target, "kvph"))
            d.multipath.assign(kvph, strcspn(kvph, "/"));
    }
    const std::string dir = SYS_BLOCK + name;
    d.blocks.push_back({name, "", "", parse_dev(first_line(dir + "/dev")), {}, false});
    std::vector<BlockUse> holders;
    add_holders(dir, name, holders);
    for (const std::string &part : names_in(dir)) {
        if (part.compare(0, name.size(), name) != 0 || !exists(dir + "/" + part + "/dev"))
            continue;
        d.blocks.push_back({part, "", "", parse_dev(first_line(dir + "/" + part + "/dev")), {}, false});
        add_holders(dir + "/" + part, part, holders);
    }
    d.blocks.insert(d.blocks.end(), holders.begin(), holders.end());
    return d;
}

void read_disks(StorageUse &use)
{
    for (const std::string &name : names_in(SYS_BLOCK)) {
        if (!exists(SYS_BLOCK + name + "/device") || !exists("/dev/" + name))
            continue;
        std::vector<TargetAdapter> paths;
        if (device_adapters(("/dev/" + name).c_str(), paths) > 0)
            use.disks.push_back(disk_use(name, std::move(paths)));
    }
}

void read_volumes(StorageUse &use)
{
    for (const std::string &vds_class : names_in(VDS_DIR)) {
        const std::string dsk = std::string(VDS_DIR) + "/" + vds_class + "/dsk";
        for (const std::string &volume : names_in(dsk)) {
            VolumeUse v;
            v.path = dsk + "/" + volume;
            std::vector<TargetAdapter> paths;
            if (device_adapters(v.path.c_str(), paths) <= 0)
                continue;
            for (TargetAdapter &p : paths)
                v.adapters.push_back(std::move(p.bus_id));
            struct stat st;
            if (stat(v.path.c_str(), &st) == 0)
                v.use.dev = st.st_rdev;
            v.use.name = v.path;
            use.volumes.push_back(v);
        }
    }
}

// Every block use of the server, to be marked from the tables.
std::vector<BlockUse *> all_blocks(StorageUse &use)
{
    std::vector<BlockUse *> all;
    for (DiskUse &d : use.disks)
        for (BlockUse &b : d.blocks)
            all.push_back(&b);
    for (VolumeUse &v : use.volumes)
        all.push_back(&v.use);
    return all;
}

// Runs on_line for each line of a /proc table with its blank-separated fields.
template <class OnLine>
void each_line(const char *path, OnLine on_line)
{
    std::string text;
    if (!read_text(path, text))
        return;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = std::min(text.find('\n', pos), text.size());
        std::vector<std::string> fields;
        size_t f = pos;
        while (f < end) {
            size_t blank = std::min(text.find_first_of(" \t", f), end);
            if (blank > f)
                fields.push_back(text.substr(f, blank - f));
            f = blank + 1;
        }
        on_line(fields);
        pos = end + 1;
    }
}

void mark_mounts_and_swap(StorageUse &use)
{
    std::vector<BlockUse *> all = all_blocks(use);
    auto mark = [&all](dev_t dev, auto how) {
        for (BlockUse *b : all)
            if (dev != 0 && b->dev == dev)
                how(*b);
    };
    // ID, parent, MAJOR:MINOR, root, mount point, ...
    each_line("/proc/self/mountinfo", [&](const std::vector<std::string> &f) {
        if (f.size() > 4)
            mark(parse_dev(f[2]), [&f](BlockUse &b) { b.mounts.push_back(unescape(f[4])); });
    });
    // A header line, then the swap areas by path.
    each_line("/proc/swaps", [&](const std::vector<std::string> &f) {
        struct stat st;
        if (!f.empty() && f[0][0] == '/' && stat(unescape(f[0]).c_str(), &st) == 0 &&
            S_ISBLK(st.st_mode))
            mark(st.st_rdev, [](BlockUse &b) { b.swap = true; });
    });
}

} // namespace

StorageUse read_storage_use()
{
    StorageUse use;
    read_disks(use);
    read_volumes(use);
    mark_mounts_and_swap(use);
    return use;
}
