#include "block_use.hpp"

#include "arguments.hpp"
#include "files.hpp"
#include "numbers.hpp"
#include "storage_topology.hpp"
#include "storage_tree.hpp"

#include <optional>

namespace {

struct BlockDevice {
    unsigned major = 0;
    unsigned minor = 0;
    std::string disk;  // the disk a partition is on, else empty
};

// A disk, a partition (DISKk) or a holder declared so far.
std::optional<BlockDevice> find_block(const StorageDesc& storage, const std::string& name)
{
    for (const auto& disk : storage.disks) {
        if (disk.name == name)
            return BlockDevice{disk.major, disk.minor, ""};
        for (unsigned k = 1; k <= disk.partitions; ++k)
            if (disk.name + std::to_string(k) == name)
                return BlockDevice{disk.major, disk.minor + k, disk.name};
    }
    for (const auto& holder : storage.holders)
        if (holder.name == name)
            return BlockDevice{holder.major, holder.minor, ""};
    if (storage.vds)
        for (const auto& volume : storage.vds->volumes)
            if ("vdsdev/" + volume.vds_class + "/dsk/" + volume.name == name)
                return BlockDevice{storage.vds->major, volume.minor, ""};
    return std::nullopt;
}

BlockDevice known_block(const StorageDesc& storage, const std::string& name)
{
    auto found = find_block(storage, name);
    if (!found)
        throw ParseError("no disk, partition, holder or volume " + name + " declared before");
    return *found;
}

void holder(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (words.size() < 3 || words[1].empty() || words[1].find('/') != std::string::npos)
        throw ParseError("holder needs NAME DEVICE[,DEVICE...]");
    HolderDesc desc;
    desc.name = words[1];
    if (find_block(storage, desc.name))
        throw ParseError(desc.name + " already defined");
    std::size_t pos = 0;
    const std::string& list = words[2];
    while (pos <= list.size()) {
        auto end = std::min(list.find(',', pos), list.size());
        desc.of.push_back(list.substr(pos, end - pos));
        known_block(storage, desc.of.back());
        pos = end + 1;
    }
    Arguments args(words, 3);
    const bool dm = desc.name.starts_with("dm-");
    auto index = parse_number(desc.name.substr(dm ? 3 : 2), 0xfffff);
    if (auto dev = args.text("dev"))
        std::tie(desc.major, desc.minor) = device_number(*dev);
    else if (index && (dm || desc.name.starts_with("md")))
        std::tie(desc.major, desc.minor) = std::pair{dm ? 254u : 9u, static_cast<unsigned>(*index)};
    else
        throw ParseError("holder " + desc.name + " needs dev=MAJOR:MINOR");
    desc.dm_name = args.text("name").value_or(desc.name);
    args.finish();
    storage.holders.push_back(std::move(desc));
}

std::string dev_of(const StorageDesc& storage, const std::string& name)
{
    BlockDevice b = known_block(storage, name);
    return std::to_string(b.major) + ":" + std::to_string(b.minor);
}

} // namespace

void block_use_statement(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (words[0] == "holder") {
        holder(words, storage);
    } else if (words[0] == "mount") {
        if (words.size() != 3 || words[2].empty() || words[2][0] != '/')
            throw ParseError("mount needs DEVICE /PATH");
        known_block(storage, words[1]);
        storage.mounts.push_back({words[1], words[2]});
    } else {
        if (words.size() != 2)
            throw ParseError("swap needs DEVICE");
        known_block(storage, words[1]);
        storage.swaps.push_back(words[1]);
    }
}

void write_block_use(const std::string& root, const StorageDesc& storage)
{
    const std::string block = root + "/sys/block/";
    for (const auto& holder : storage.holders) {
        make_node(root + "/dev/" + holder.name, true, holder.major, holder.minor);
        make_dirs(block + holder.name);
        write_file(block + holder.name + "/dev",
                   std::to_string(holder.major) + ":" + std::to_string(holder.minor) + "\n", 0444);
        if (holder.name.starts_with("dm-")) {
            make_dirs(block + holder.name + "/dm");
            write_file(block + holder.name + "/dm/name", holder.dm_name + "\n", 0444);
        }
        for (const auto& of : holder.of) {
            BlockDevice b = known_block(storage, of);
            const std::string dir = b.disk.empty() ? block + of : block + b.disk + "/" + of;
            make_dirs(dir + "/holders");
            make_symlink((b.disk.empty() ? "../../" : "../../../") + holder.name,
                         dir + "/holders/" + holder.name);
        }
    }
    // The fields the kernel writes: ID, parent ID, MAJOR:MINOR, root, mount
    // point, options, optional fields, "-", type, source, super options.
    std::string mountinfo;
    unsigned id = 21;
    for (const auto& m : storage.mounts)
        mountinfo += std::to_string(id++) + " 1 " + dev_of(storage, m.device) + " / " + m.path +
                     " rw,relatime shared:1 - ext4 /dev/" + m.device + " rw\n";
    write_file(root + "/proc-mountinfo", mountinfo, 0444);
    std::string swaps = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
    for (const auto& name : storage.swaps)
        swaps += "/dev/" + name + std::string(name.size() < 35 ? 35 - name.size() : 1, ' ') +
                 "partition\t1048572\t\t0\t\t-2\n";
    write_file(root + "/proc-swaps", swaps, 0444);
}
