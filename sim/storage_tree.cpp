#include "storage_tree.hpp"

#include "block_use.hpp"
#include "files.hpp"
#include "state_files.hpp"
#include "storage_state.hpp"
#include "sysfs_tree.hpp"
#include "vdsstat_script.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>

namespace {

} // namespace

void make_node(const std::string& path, bool block, unsigned major, unsigned minor)
{
    make_dirs(path.substr(0, path.rfind('/')));
    const mode_t type = block ? S_IFBLK : S_IFCHR;
    if (::mknod(path.c_str(), type | 0660, ::makedev(major, minor)) != 0)
        throw_errno("mknod " + path);
}

namespace {

// hostN's directory below /sys/devices: under its adapter's function when
// the topology has that function, otherwise directly under the root bus.
std::string host_dir(const Topology& topology, const ScsiHostDesc& host)
{
    std::string pci = "pci0000:00/" + host.pci_name;
    for (const auto& desc : topology.functions)
        if (desc.address.name() == host.pci_name)
            pci = device_path(topology, desc);
    return pci + "/host" + std::to_string(host.number);
}

const ScsiHostDesc& host_of(const StorageDesc& storage, unsigned number)
{
    for (const auto& host : storage.hosts)
        if (host.number == number)
            return host;
    throw std::logic_error("host checked by the parser");
}

void write_hosts(const std::string& sys, const Topology& topology)
{
    for (const auto& host : topology.storage.hosts) {
        if (host.pci_name.find('/') != std::string::npos)
            throw std::runtime_error("host " + std::to_string(host.number) +
                                     ": a PCI name without '/', please");
        const std::string dir = host_dir(topology, host);
        make_dirs(sys + "/devices/" + dir);
        const std::string entry = sys + "/class/scsi_host/host" + std::to_string(host.number);
        make_dirs(entry);
        make_symlink("../../../devices/" + dir, entry + "/device");
    }
}

// What /sys/block/NAME/device points at; empty when nothing does.
std::string disk_link(const Topology& topology, const DiskDesc& disk, const std::string& sys)
{
    if (disk.sysfs_link)
        return *disk.sysfs_link;
    const StorageDesc& storage = topology.storage;
    for (const auto& kvph : storage.kvph) {
        if (std::find(kvph.disks.begin(), kvph.disks.end(), disk.name) == kvph.disks.end())
            continue;
        const std::string dir = "devices/kvpx/" + kvph.name;
        if (kvph.bare_links)
            return "../../" + dir;
        make_dirs(sys + "/" + dir + "/" + disk.name);
        return "../../" + dir + "/" + disk.name;
    }
    if (!disk.host)
        return "";
    // target H:0:T, LUN 0: T counts the host's disks in topology order
    unsigned target = 0;
    for (const auto& other : storage.disks) {
        if (&other == &disk)
            break;
        if (other.host == disk.host)
            ++target;
    }
    const std::string h = std::to_string(*disk.host);
    const std::string t = std::to_string(target);
    const std::string dir = "devices/" + host_dir(topology, host_of(storage, *disk.host)) +
                            "/target" + h + ":0:" + t + "/" + h + ":0:" + t + ":0";
    make_dirs(sys + "/" + dir);
    return "../../" + dir;
}

std::string dev_text(unsigned major, unsigned minor)
{
    return std::to_string(major) + ":" + std::to_string(minor) + "\n";
}

void write_disks(const std::string& root, const Topology& topology)
{
    const std::string dev = root + "/dev";
    const std::string sys = root + "/sys";
    for (const auto& disk : topology.storage.disks) {
        make_node(dev + "/" + disk.name, true, disk.major, disk.minor);
        const std::string block = sys + "/block/" + disk.name;
        make_dirs(block);
        write_file(block + "/dev", dev_text(disk.major, disk.minor), 0444);
        for (unsigned k = 1; k <= disk.partitions; ++k) {
            const std::string part = disk.name + std::to_string(k);
            make_node(dev + "/" + part, true, disk.major, disk.minor + k);
            make_dirs(block + "/" + part);
            write_file(block + "/" + part + "/dev", dev_text(disk.major, disk.minor + k), 0444);
        }
        for (const auto& id : disk.ids) {
            make_dirs(dev + "/disk/by-id");
            make_symlink("../../" + disk.name, dev + "/disk/by-id/" + id);
            for (unsigned k = 1; k <= disk.partitions; ++k)
                make_symlink("../../" + disk.name + std::to_string(k),
                             dev + "/disk/by-id/" + id + "-part" + std::to_string(k));
        }
        const std::string link = disk_link(topology, disk, sys);
        if (!link.empty())
            make_symlink(link, block + "/device");
    }
}

void write_kvpx(const std::string& sys, const StorageDesc& storage)
{
    if (!storage.kvpx)
        return;
    make_dirs(sys + "/devices/kvpx");
    for (const auto& kvph : storage.kvph) {
        const std::string dir = sys + "/devices/kvpx/" + kvph.name;
        make_dirs(dir);
        for (const auto& entry : kvph.entries) {
            switch (entry.kind) {
            case KvphEntry::Kind::host_file:
                write_file(dir + "/" + entry.name, entry.host + "\n", 0444);
                break;
            case KvphEntry::Kind::empty_file:
                write_file(dir + "/" + entry.name, "", 0444);
                break;
            case KvphEntry::Kind::directory:
                make_dirs(dir + "/" + entry.name);
                break;
            }
        }
        for (const auto& name : kvph.disks) {
            const auto& disks = storage.disks;
            if (std::none_of(disks.begin(), disks.end(),
                             [&](const DiskDesc& d) { return d.name == name; }))
                throw std::runtime_error("kvph " + kvph.name + ": no disk " + name);
        }
    }
}

// Leading number of a /proc/devices line, or nothing for a header or blank.
std::optional<unsigned> line_major(const std::string& line)
{
    unsigned value = 0;
    if (std::sscanf(line.c_str(), "%u", &value) != 1)
        return std::nullopt;
    return value;
}

// "vdsdev" in the sections asked for, in major order as the kernel lists.
std::string with_vdsdev(const std::string& text, const VdsDesc& vds)
{
    char entry[32];
    std::snprintf(entry, sizeof entry, "%3u vdsdev", vds.major);
    std::string out;
    bool wanted = false;
    auto insert = [&] {
        if (wanted)
            out += std::string(entry) + "\n";
        wanted = false;
    };
    std::size_t pos = 0;
    while (pos < text.size()) {
        auto end = text.find('\n', pos);
        std::string line = text.substr(pos, end == std::string::npos ? end : end - pos);
        pos = end == std::string::npos ? text.size() : end + 1;
        if (line.starts_with("Character devices:") || line.starts_with("Block devices:")) {
            insert();
            wanted = line.starts_with("Character") ? vds.in_character : vds.in_block;
        } else if (auto major = line_major(line); !major || *major > vds.major) {
            insert();
        }
        out += line + "\n";
    }
    insert();
    return out;
}

void write_vds(const std::string& root, const VdsDesc& vds)
{
    const std::string proc = root + "/proc-devices";
    if (auto text = read_file(proc))
        write_file(proc, with_vdsdev(*text, vds), 0444);
    for (const auto& volume : vds.volumes)
        make_node(root + "/dev/vdsdev/" + volume.vds_class + "/dsk/" + volume.name,
                  !volume.character, vds.major, volume.minor);
    if (vds.diag_present)
        make_node(root + "/dev/vdsdev/_diag", false, vds.major, 0);
}

state::StorageState storage_state(const Topology& topology)
{
    const StorageDesc& storage = topology.storage;
    state::StorageState out;
    for (const auto& disk : storage.disks)
        out.disks.push_back({disk.name, disk.major, disk.minor, disk.partitions,
                             disk.host ? host_of(storage, *disk.host).pci_name : "",
                             disk.open_error, disk.open_busy, disk.ioctl_error, disk.relay_error});
    if (storage.vds) {
        for (const auto& volume : storage.vds->volumes)
            out.volume_nodes.push_back("/dev/vdsdev/" + volume.vds_class + "/dsk/" + volume.name);
        if (storage.vds->diag_present)
            out.diag = state::StorageDiag{storage.vds->diag_open_error, storage.vds->diag_open_busy};
    }
    for (const auto& kvph : storage.kvph) {
        state::ListingOrder order{"/sys/devices/kvpx/" + kvph.name, {}};
        for (const auto& entry : kvph.entries)
            order.first.push_back(entry.name);
        out.orders.push_back(std::move(order));
    }
    return out;
}

} // namespace

void write_storage(const std::string& root, const Topology& topology)
{
    const StorageDesc& storage = topology.storage;
    write_hosts(root + "/sys", topology);
    write_disks(root, topology);
    write_kvpx(root + "/sys", storage);
    if (storage.vds)
        write_vds(root, *storage.vds);
    write_block_use(root, storage);
    const std::string state = canonical(root + "/state");
    if (storage.vdsstat) {
        const std::string calls = state + "/vdsstat-calls";
        write_file(calls, "");
        write_file(root + "/sbin/vdsstat", vdsstat_script(*storage.vdsstat, calls), 0755);
    }
    write_file(state + "/" + state::storage_file, state::format_storage(storage_state(topology)));
}
