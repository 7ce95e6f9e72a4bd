#include "storage_topology.hpp"

#include "arguments.hpp"
#include "block_use.hpp"
#include "numbers.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::array<std::string_view, 16> verbs{
    "host", "disk", "kvpx", "kvph", "path", "vds", "volume",
    "vdsstat", "stdout", "stderr", "sleep", "exit", "signal",
    "holder", "mount", "swap"};

// Signals a scripted query may end by; kill(1) knows them by these names.
constexpr std::array<std::string_view, 11> signal_names{
    "HUP", "INT", "QUIT", "ABRT", "KILL", "SEGV", "PIPE", "ALRM", "TERM", "USR1", "USR2"};

int errno_value(const std::string& text)
{
    auto value = parse_errno(text);
    if (!value || *value == 0)
        throw ParseError("unknown errno: " + text);
    return *value;
}

bool is_name(std::string_view text)
{
    return !text.empty() && text != "." && text != ".." && text.find('/') == std::string_view::npos;
}

// The kernel's numbering of SCSI disks: sda..sdp on major 8, then 16 a
// major on 65..71 and 128..135, 16 minors a disk.
std::optional<std::pair<unsigned, unsigned>> sd_device_number(std::string_view name)
{
    if (!name.starts_with("sd") || name.size() < 3 || name.size() > 4)
        return std::nullopt;
    unsigned index = 0;
    for (char c : name.substr(2)) {
        if (c < 'a' || c > 'z')
            return std::nullopt;
        index = index * 26 + static_cast<unsigned>(c - 'a') + 1;
    }
    index -= 1;
    if (index > 255)
        return std::nullopt;
    const unsigned group = index >> 4;
    const unsigned major = group == 0 ? 8 : group < 8 ? 64 + group : 120 + group;
    return std::pair{major, (index & 0xf) << 4};
}

} // namespace

std::pair<unsigned, unsigned> device_number(const std::string& text)
{
    auto colon = text.find(':');
    auto major = parse_number(std::string_view(text).substr(0, colon), 4095);
    auto minor = colon == std::string::npos
                     ? std::nullopt
                     : parse_number(std::string_view(text).substr(colon + 1), 0xfffff);
    if (!major || !minor)
        throw ParseError("dev must be MAJOR:MINOR: " + text);
    return {static_cast<unsigned>(*major), static_cast<unsigned>(*minor)};
}

namespace {

std::vector<std::string> comma_list(const std::string& text)
{
    std::vector<std::string> items;
    std::size_t pos = 0;
    while (pos <= text.size()) {
        auto end = std::min(text.find(',', pos), text.size());
        items.push_back(text.substr(pos, end - pos));
        pos = end + 1;
    }
    return items;
}

// The text of the line after its first word and the blanks behind it, as
// written.
std::string rest_of_line(const std::string& line)
{
    auto start = line.find_first_not_of(" \t");
    auto after_verb = line.find_first_of(" \t", start);
    auto text_start = line.find_first_not_of(" \t", after_verb);
    if (text_start == std::string::npos)
        return "";
    std::string text = line.substr(text_start);
    while (!text.empty() && text.back() == '\r')
        text.pop_back();
    return text;
}

void host(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (words.size() != 3)
        throw ParseError("host needs NUMBER PCI-NAME");
    auto number = parse_number(words[1], 0xffff);
    if (!number)
        throw ParseError("bad host number: " + words[1]);
    for (const auto& other : storage.hosts)
        if (other.number == *number)
            throw ParseError("host " + words[1] + " already defined");
    storage.hosts.push_back({static_cast<unsigned>(*number), words[2]});
}

void disk(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (words.size() < 2 || !is_name(words[1]))
        throw ParseError("disk needs a name under /dev");
    DiskDesc desc;
    desc.name = words[1];
    Arguments args(words, 2);
    if (auto dev = args.text("dev")) {
        std::tie(desc.major, desc.minor) = device_number(*dev);
    } else if (auto number = sd_device_number(desc.name)) {
        std::tie(desc.major, desc.minor) = *number;
    } else {
        throw ParseError("disk " + desc.name + " needs dev=MAJOR:MINOR");
    }
    if (auto parts = args.number("parts", 15))
        desc.partitions = static_cast<unsigned>(*parts);
    if (auto number = args.number("host", 0xffff)) {
        auto known = std::find_if(storage.hosts.begin(), storage.hosts.end(),
                                  [&](const ScsiHostDesc& h) { return h.number == *number; });
        if (known == storage.hosts.end())
            throw ParseError("no host " + std::to_string(*number) + " defined before");
        desc.host = static_cast<unsigned>(*number);
    }
    if (auto ids = args.text("id"))
        for (auto& id : comma_list(*ids)) {
            if (!is_name(id))
                throw ParseError("bad by-id name: " + id);
            desc.ids.push_back(std::move(id));
        }
    if (auto err = args.text("open"))
        desc.open_error = errno_value(*err);
    if (auto busy = args.number("busy", 1000))
        desc.open_busy = static_cast<unsigned>(*busy);
    if (auto err = args.text("ioctl"))
        desc.ioctl_error = errno_value(*err);
    if (auto err = args.text("relay"))
        desc.relay_error = errno_value(*err);
    desc.sysfs_link = args.text("sysfs");
    args.finish();
    for (const auto& other : storage.disks) {
        if (other.name == desc.name)
            throw ParseError("disk " + desc.name + " already defined");
        // The diagnostic device finds disks by device number.
        if (other.major == desc.major && desc.minor <= other.minor + other.partitions &&
            other.minor <= desc.minor + desc.partitions)
            throw ParseError("disk " + desc.name + " shares device numbers with " + other.name);
    }
    storage.disks.push_back(std::move(desc));
}

void kvph(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (words.size() < 2 || !is_name(words[1]))
        throw ParseError("kvph needs a directory name");
    KvphDesc desc;
    desc.name = words[1];
    Arguments args(words, 2);
    if (auto disks = args.text("disk"))
        desc.disks = comma_list(*disks);
    desc.bare_links = args.flag("bare");
    args.finish();
    for (const auto& other : storage.kvph)
        if (other.name == desc.name)
            throw ParseError("kvph " + desc.name + " already defined");
    storage.kvpx = true;
    storage.kvph.push_back(std::move(desc));
}

void path(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (storage.kvph.empty())
        throw ParseError("path needs a kvph before it");
    if (words.size() < 2 || words.size() > 3 || !is_name(words[1]))
        throw ParseError("path needs ENTRY [HOST | dir]");
    KvphEntry entry;
    entry.name = words[1];
    if (words.size() == 2)
        entry.kind = KvphEntry::Kind::empty_file;
    else if (words[2] == "dir")
        entry.kind = KvphEntry::Kind::directory;
    else
        entry.host = words[2];
    for (const auto& other : storage.kvph.back().entries)
        if (other.name == entry.name)
            throw ParseError("path " + entry.name + " already defined");
    storage.kvph.back().entries.push_back(std::move(entry));
}

void vds(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (storage.vds)
        throw ParseError("vds already defined");
    VdsDesc desc;
    Arguments args(words, 1);
    if (auto major = args.number("major", 4095))
        desc.major = static_cast<unsigned>(*major);
    if (auto proc = args.text("proc")) {
        if (*proc != "char" && *proc != "block" && *proc != "both" && *proc != "none")
            throw ParseError("proc must be char, block, both or none");
        desc.in_character = *proc == "char" || *proc == "both";
        desc.in_block = *proc == "block" || *proc == "both";
    }
    if (auto diag = args.text("diag")) {
        if (*diag == "absent")
            desc.diag_present = false;
        else
            desc.diag_open_error = errno_value(*diag);
    }
    if (auto busy = args.number("diag_busy", 1000))
        desc.diag_open_busy = static_cast<unsigned>(*busy);
    args.finish();
    storage.vds = std::move(desc);
}

void volume(const std::vector<std::string>& words, StorageDesc& storage)
{
    if (!storage.vds)
        throw ParseError("volume needs vds before it");
    if (words.size() < 2)
        throw ParseError("volume needs CLASS/VOLUME");
    auto slash = words[1].find('/');
    VolumeDesc desc;
    if (slash != std::string::npos) {
        desc.vds_class = words[1].substr(0, slash);
        desc.name = words[1].substr(slash + 1);
    }
    if (!is_name(desc.vds_class) || !is_name(desc.name))
        throw ParseError("volume needs CLASS/VOLUME: " + words[1]);
    auto& volumes = storage.vds->volumes;
    desc.minor = volumes.empty() ? 1 : volumes.back().minor + 1;
    Arguments args(words, 2);
    if (auto minor = args.number("minor", 0xfffff))
        desc.minor = static_cast<unsigned>(*minor);
    desc.character = args.flag("char");
    args.finish();
    volumes.push_back(std::move(desc));
}

QueryCase& current_case(StorageDesc& storage)
{
    if (!storage.vdsstat || storage.vdsstat->empty())
        throw ParseError("no vdsstat case before this line");
    return storage.vdsstat->back();
}

void query_step(const std::vector<std::string>& words, const std::string& line,
                StorageDesc& storage)
{
    QueryCase& query = current_case(storage);
    const std::string& verb = words[0];
    if (verb == "stdout" || verb == "stderr") {
        query.steps.push_back({verb == "stdout" ? QueryStep::Kind::stdout_line
                                                : QueryStep::Kind::stderr_line,
                               rest_of_line(line)});
        return;
    }
    if (words.size() != 2)
        throw ParseError(verb + " needs one value");
    if (verb == "sleep") {
        const std::string& seconds = words[1];
        if (seconds.empty() || seconds.find_first_not_of("0123456789.") != std::string::npos)
            throw ParseError("sleep needs seconds: " + seconds);
        query.steps.push_back({QueryStep::Kind::sleep, seconds});
    } else if (verb == "exit") {
        auto code = parse_number(words[1], 255);
        if (!code)
            throw ParseError("exit needs a code from 0 to 255");
        query.exit_code = static_cast<int>(*code);
    } else {
        if (std::find(signal_names.begin(), signal_names.end(), words[1]) == signal_names.end())
            throw ParseError("unknown signal " + words[1] + " (HUP, INT, KILL, SEGV, TERM, ...)");
        query.signal = words[1];
    }
}

} // namespace

bool is_storage_statement(const std::string& verb)
{
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
}

void storage_statement(const std::vector<std::string>& words, const std::string& line,
                       StorageDesc& storage)
{
    const std::string& verb = words[0];
    if (verb == "host") {
        host(words, storage);
    } else if (verb == "disk") {
        disk(words, storage);
    } else if (verb == "kvpx") {
        if (words.size() != 1)
            throw ParseError("kvpx takes nothing");
        storage.kvpx = true;
    } else if (verb == "kvph") {
        kvph(words, storage);
    } else if (verb == "path") {
        path(words, storage);
    } else if (verb == "vds") {
        vds(words, storage);
    } else if (verb == "volume") {
        volume(words, storage);
    } else if (verb == "holder" || verb == "mount" || verb == "swap") {
        block_use_statement(words, storage);
    } else if (verb == "vdsstat") {
        if (!storage.vdsstat)
            storage.vdsstat.emplace();
        storage.vdsstat->push_back({{words.begin() + 1, words.end()}, {}, 0, std::nullopt});
    } else {
        query_step(words, line, storage);
    }
}
