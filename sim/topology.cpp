#include "topology.hpp"

#include "arguments.hpp"
#include "capabilities.hpp"
#include "kernfs_order.hpp"
#include "storage_topology.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <charconv>
#include <map>
#include <set>
#include <stdexcept>

namespace {

std::vector<std::string> split_words(const std::string& line)
{
    std::vector<std::string> words;
    std::size_t pos = 0;
    while (true) {
        pos = line.find_first_not_of(" \t\r", pos);
        if (pos == std::string::npos || line[pos] == '#')
            break;
        auto end = line.find_first_of(" \t\r", pos);
        words.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    return words;
}

unsigned parse_mode(const std::string& text)
{
    unsigned mode = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size() || mode > 07777)
        throw ParseError("bad mode: " + text);
    return mode;
}

std::string checked_path(const std::string& path)
{
    if (path.empty() || path.front() == '/')
        throw ParseError("path must be relative to the root: " + path);
    std::size_t pos = 0;
    while (pos <= path.size()) {
        auto end = path.find('/', pos);
        if (end == std::string::npos)
            end = path.size();
        if (path.compare(pos, end - pos, "..") == 0)
            throw ParseError("path must stay inside the root: " + path);
        pos = end + 1;
    }
    return path;
}

class Parser {
public:
    explicit Parser(const std::string& text) : lines_(split_lines(text)) {}

    Topology parse(const std::string& file_name)
    {
        for (index_ = 0; index_ < lines_.size(); ++index_) {
            auto words = split_words(lines_[index_]);
            if (words.empty())
                continue;
            try {
                statement(words);
            } catch (const ParseError& e) {
                throw std::runtime_error(file_name + ":" + std::to_string(index_ + 1) + ": " +
                                         e.what());
            }
        }
        if (order_ && *order_ == std::vector<std::string>{"kernfs"})
            sort_kernfs(topology_.listing);
        else if (order_)
            topology_.listing = *order_;
        return std::move(topology_);
    }

private:
    static std::vector<std::string> split_lines(const std::string& text)
    {
        std::vector<std::string> lines;
        std::size_t pos = 0;
        while (pos < text.size()) {
            auto end = text.find('\n', pos);
            if (end == std::string::npos)
                end = text.size();
            lines.push_back(text.substr(pos, end - pos));
            pos = end + 1;
        }
        return lines;
    }

    PciFunctionDesc& current()
    {
        if (topology_.functions.empty())
            throw ParseError("no function before this line");
        return topology_.functions.back();
    }

    void statement(const std::vector<std::string>& words)
    {
        const std::string& verb = words[0];
        if (verb == "function" || verb == "adapter" || verb == "bridge" || verb == "port")
            function(words);
        else if (verb == "pm")
            power_management(words);
        else if (verb == "shpc")
            shpc(words);
        else if (verb == "pcie")
            pci_express(words, 1, current());
        else if (verb == "cap")
            plain_capability(words);
        else if (verb == "config8" || verb == "config16" || verb == "config32")
            poke(words);
        else if (verb == "entry")
            entry(words);
        else if (verb == "order")
            order(words);
        else if (verb == "driver")
            driver(words);
        else if (verb == "fsync")
            fsync_signal(words);
        else if (verb == "file" || verb == "dir" || verb == "symlink" || verb == "remove")
            file(words);
        else if (verb == "slot")
            slot(words);
        else if (is_storage_statement(verb))
            storage_statement(words, lines_[index_], topology_.storage);
        else
            throw ParseError("unknown statement: " + verb);
    }

    void function(const std::vector<std::string>& words)
    {
        if (words.size() < 2)
            throw ParseError(words[0] + " needs a PCI address");
        auto address = parse_pci_address(words[1]);
        if (!address)
            throw ParseError("bad PCI address: " + words[1]);
        for (const auto& other : topology_.functions)
            if (other.address == *address)
                throw ParseError("function " + address->name() + " already defined");
        PciFunctionDesc desc;
        desc.address = *address;
        desc.line = static_cast<int>(index_ + 1);
        const std::string& kind = words[0];
        if (kind == "adapter") {
            desc.vendor = 0x1077;
            desc.device = 0x2532;
            desc.revision = 0x02;
            desc.class_code = 0x0c0400; // Fibre Channel
        } else if (kind == "bridge" || kind == "port") {
            desc.vendor = kind == "bridge" ? 0x8086 : 0x10b5;
            desc.device = kind == "bridge" ? 0x0329 : 0x8748;
            desc.revision = kind == "bridge" ? 0x09 : 0xca;
            desc.class_code = 0x060400; // PCI-to-PCI bridge
            desc.header_type = 1;
            desc.command = 0x0007;
        } else {
            desc.device = 0x0001;
        }
        Arguments args(words, kind == "port" ? 3 : 2);
        args.number_into("vendor", desc.vendor);
        args.number_into("device", desc.device);
        args.number_into("rev", desc.revision);
        if (auto value = args.number("class", 0xffffff))
            desc.class_code = static_cast<std::uint32_t>(*value);
        if (auto value = args.number("header", 0x7f))
            desc.header_type = static_cast<std::uint8_t>(*value);
        desc.multi_function = args.flag("multi");
        if (auto size = args.number("size", 4096)) {
            if (*size != 256 && *size != 4096)
                throw ParseError("size must be 256 or 4096");
            desc.config_size = static_cast<unsigned>(*size);
        }
        args.number_into("command", desc.command);
        args.number_into("status", desc.status);
        if (auto subsystem = args.text("subsystem")) {
            auto colon = subsystem->find(':');
            auto vendor = parse_number("0x" + subsystem->substr(0, colon), 0xffff);
            auto device = colon == std::string::npos
                              ? std::nullopt
                              : parse_number("0x" + subsystem->substr(colon + 1), 0xffff);
            if (!vendor || !device)
                throw ParseError("subsystem must be VVVV:DDDD: " + *subsystem);
            desc.subsystem_vendor = static_cast<std::uint16_t>(*vendor);
            desc.subsystem_device = static_cast<std::uint16_t>(*device);
        } else if (desc.header_type == 0) {
            desc.subsystem_vendor = desc.vendor;
            desc.subsystem_device = desc.device;
        }
        desc.primary_bus = desc.address.bus;
        args.number_into("primary", desc.primary_bus);
        bool has_secondary = false;
        if (auto value = args.number("secondary", 0xff)) {
            desc.secondary_bus = static_cast<std::uint8_t>(*value);
            has_secondary = true;
        }
        desc.subordinate_bus = desc.secondary_bus;
        args.number_into("subordinate", desc.subordinate_bus);
        if (desc.is_bridge() && !has_secondary)
            throw ParseError(kind + " " + desc.address.name() + " needs secondary=BUS");
        if (kind == "port") {
            if (words.size() < 3 || !capability::port_type(words[2]))
                throw ParseError("port needs a type: root, upstream or downstream");
            topology_.functions.push_back(std::move(desc));
            std::vector<std::string> pcie_words{"pcie", "type=" + words[2]};
            // slot, power and pslot on the port line belong to its capability
            for (const char* flag : {"slot", "power"})
                if (args.flag(flag))
                    pcie_words.emplace_back(flag);
            if (auto pslot = args.text("pslot"))
                pcie_words.push_back("pslot=" + *pslot);
            args.finish();
            pci_express(pcie_words, 1, topology_.functions.back());
        } else {
            args.finish();
            topology_.functions.push_back(std::move(desc));
        }
        topology_.listing.push_back(topology_.functions.back().address.name());
    }

    static void place(Capability& cap, Arguments& args)
    {
        if (auto at = args.number("at", 0xff)) {
            if (*at < 0x40 || *at % 4 != 0)
                throw ParseError("capability offset must be a multiple of 4 from 0x40");
            cap.offset = static_cast<std::uint8_t>(*at);
        }
    }

    void power_management(const std::vector<std::string>& words)
    {
        Arguments args(words, 1);
        std::uint16_t pmc = 0x0003;   // version 3
        std::uint16_t pmcsr = 0x0008; // no soft reset
        args.number_into("pmc", pmc);
        args.number_into("pmcsr", pmcsr);
        Capability cap = capability::power_management(pmc, pmcsr);
        place(cap, args);
        args.finish();
        current().capabilities.push_back(std::move(cap));
    }

    void shpc(const std::vector<std::string>& words)
    {
        PciFunctionDesc& desc = current();
        if (desc.shpc_capability)
            throw ParseError("function already has an SHPC capability");
        Arguments args(words, 1);
        unsigned code = capability::speed_pci33;
        if (auto speed = args.text("speed")) {
            auto known = capability::speed_code(*speed);
            if (!known)
                throw ParseError("unknown speed " + *speed +
                                 " (pci33, pci66, pcix66, pcix100, pcix133)");
            code = *known;
        }
        if (auto raw = args.number("code", 7))
            code = static_cast<unsigned>(*raw);
        unsigned slots = static_cast<unsigned>(args.number("slots", 31).value_or(1));
        unsigned first = static_cast<unsigned>(args.number("first", 31).value_or(1));
        auto regs = capability::shpc_registers(code, slots, first);
        const std::pair<const char*, std::uint8_t> raw_names[] = {
            {"sa1", 1}, {"sa2", 2}, {"slotcfg", 3}, {"secbus", 4}};
        for (const auto& [key, index] : raw_names)
            if (auto value = args.number(key, 0xffffffff))
                regs[index] = static_cast<std::uint32_t>(*value);
        for (const auto& [index, text] : args.indexed("reg")) {
            auto value = parse_number(text, 0xffffffff);
            if (!value)
                throw ParseError("bad register value: " + text);
            regs[static_cast<std::uint8_t>(index)] = static_cast<std::uint32_t>(*value);
        }
        Capability cap = capability::shpc(regs[0]);
        place(cap, args);
        args.finish();
        desc.shpc_capability = desc.capabilities.size();
        desc.capabilities.push_back(std::move(cap));
        desc.shpc_registers = std::move(regs);
    }

    void pci_express(const std::vector<std::string>& words, std::size_t first,
                     PciFunctionDesc& desc)
    {
        Arguments args(words, first);
        capability::PciExpressOptions options;
        if (auto type = args.text("type")) {
            auto known = capability::port_type(*type);
            if (known) {
                options.type = *known;
            } else if (auto raw = parse_number(*type, 0xf)) {
                options.type = static_cast<unsigned>(*raw);
            } else {
                throw ParseError("unknown port type " + *type +
                                 " (endpoint, legacy, root, upstream, downstream or 0-15)");
            }
        }
        options.slot = args.flag("slot");
        options.power_controller = args.flag("power");
        options.physical_slot = static_cast<unsigned>(args.number("pslot", 0x1fff).value_or(0));
        args.number_into("flags", options.flags);
        args.number_into("devcap", options.devcap);
        args.number_into("lnkcap", options.lnkcap);
        args.number_into("sltcap", options.sltcap);
        if (options.power_controller && !options.slot && !options.sltcap)
            throw ParseError("power needs slot");
        Capability cap = capability::pci_express(options);
        place(cap, args);
        args.finish();
        desc.capabilities.push_back(std::move(cap));
    }

    void plain_capability(const std::vector<std::string>& words)
    {
        if (words.size() < 2)
            throw ParseError("cap needs an ID");
        auto id = parse_number(words[1], 0xff);
        if (!id)
            throw ParseError("bad capability ID: " + words[1]);
        Arguments args(words, 2);
        auto length = args.number("len", 0xc0).value_or(8);
        Capability cap = capability::plain(static_cast<std::uint8_t>(*id),
                                           static_cast<unsigned>(length));
        place(cap, args);
        args.finish();
        current().capabilities.push_back(std::move(cap));
    }

    void poke(const std::vector<std::string>& words)
    {
        if (words.size() != 3)
            throw ParseError(words[0] + " needs OFFSET VALUE");
        ConfigPoke p;
        p.width = words[0] == "config8" ? 1 : words[0] == "config16" ? 2 : 4;
        auto offset = parse_number(words[1], 4095);
        auto value = parse_number(words[2], p.width == 4 ? 0xffffffff : (1u << 8 * p.width) - 1);
        if (!offset || !value)
            throw ParseError("bad offset or value");
        if (*offset + p.width > current().config_size)
            throw ParseError("offset beyond the configuration space");
        p.offset = static_cast<unsigned>(*offset);
        p.value = static_cast<std::uint32_t>(*value);
        current().pokes.push_back(p);
    }

    void entry(const std::vector<std::string>& words)
    {
        if (words.size() != 2 || words[1].find('/') != std::string::npos || words[1] == "." ||
            words[1] == "..")
            throw ParseError("entry needs one directory name");
        topology_.extra_entries.push_back(words[1]);
        topology_.listing.push_back(words[1]);
    }

    void order(const std::vector<std::string>& words)
    {
        order_.emplace(words.begin() + 1, words.end());
    }

    // A signal that arrives while a file is being synced: what the table
    // writer must hold off until the new table is in place.
    void fsync_signal(const std::vector<std::string>& words)
    {
        static const std::map<std::string, int> numbers{
            {"HUP", SIGHUP}, {"INT", SIGINT}, {"QUIT", SIGQUIT}, {"USR1", SIGUSR1}, {"TERM", SIGTERM}};
        auto it = words.size() == 3 && words[1] == "signal" ? numbers.find(words[2]) : numbers.end();
        if (it == numbers.end())
            throw ParseError("fsync signal HUP|INT|QUIT|USR1|TERM");
        topology_.fsync_signal = it->second;
    }

    void driver(const std::vector<std::string>& words)
    {
        if (words.size() == 2 && words[1] == "absent") {
            topology_.driver_absent = true;
            return;
        }
        if (words.size() < 3 || words[1] != "reject" ||
            (words[2] != "set_hba" && words[2] != "set_shpc"))
            throw ParseError("driver absent | driver reject set_hba|set_shpc errno=E err_num=N "
                             "[device_err_num=M]");
        const bool table = words[2] == "set_shpc";
        state::DriverRule& rule = table ? topology_.driver.set_shpc : topology_.driver.set_hba;
        Arguments args(words, 3);
        rule.reject = true;
        rule.err = EIO;
        if (auto err = args.text("errno")) {
            auto value = parse_errno(*err);
            if (!value)
                throw ParseError("unknown errno: " + *err);
            rule.err = *value;
        }
        rule.err_num = signed_number(args.text("err_num"));
        if (table)
            rule.device_err_num = signed_number(args.text("device_err_num"));
        args.finish();
    }

    static std::int32_t signed_number(const std::optional<std::string>& text)
    {
        if (!text)
            return 0;
        std::string_view digits = *text;
        bool negative = digits.starts_with('-');
        if (negative)
            digits.remove_prefix(1);
        auto value = parse_number(digits, 0x7fffffff);
        if (!value)
            throw ParseError("bad number: " + *text);
        return negative ? -static_cast<std::int32_t>(*value) : static_cast<std::int32_t>(*value);
    }

    // A slot the kernel's hot-plug driver registered: its directory in
    // /sys/bus/pci/slots, made of plain files. What a program writes into
    // attention stays there, for the test to read back.
    void slot(const std::vector<std::string>& words)
    {
        if (words.size() < 3)
            throw ParseError("slot needs NAME ADDR");
        const std::string& name = words[1];
        if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
            throw ParseError("bad slot name: " + name);
        if (!slot_address(words[2]))
            throw ParseError("bad slot address (DDDD:BB or DDDD:BB:DD): " + words[2]);
        Arguments args(words, 3);
        std::string attention = args.text("attention").value_or("0");
        auto power = args.number("power", 1).value_or(1);
        auto adapter = args.number("adapter", 1).value_or(1);
        args.finish();
        if (attention != "none" && attention != "0" && attention != "1" && attention != "2")
            throw ParseError("bad value for attention: " + attention);
        const std::string dir = "sys/bus/pci/slots/" + name;
        add_file(dir + "/address", words[2] + "\n");
        if (attention != "none")
            add_file(dir + "/attention", attention + "\n");
        add_file(dir + "/power", std::to_string(power) + "\n");
        add_file(dir + "/adapter", std::to_string(adapter) + "\n");
    }

    static bool slot_address(const std::string& text)
    {
        if (text.size() != 7 && text.size() != 10)
            return false;
        for (std::size_t i = 0; i < text.size(); ++i) {
            bool colon = i == 4 || i == 7;
            if (colon ? text[i] != ':' : !std::isxdigit(static_cast<unsigned char>(text[i])))
                return false;
        }
        return true;
    }

    void add_file(const std::string& path, const std::string& content)
    {
        FileDirective directive;
        directive.path = path;
        directive.content = content;
        topology_.files.push_back(directive);
    }

    void file(const std::vector<std::string>& words)
    {
        if (words.size() < 2)
            throw ParseError(words[0] + " needs a path");
        FileDirective directive;
        directive.path = checked_path(words[1]);
        std::size_t first_argument = 2;
        if (words[0] == "remove") {
            directive.kind = FileDirective::Kind::remove;
        } else if (words[0] == "symlink") {
            if (words.size() < 3)
                throw ParseError("symlink needs PATH TARGET");
            directive.kind = FileDirective::Kind::symlink;
            directive.content = words[2];
            first_argument = 3;
        } else if (words[0] == "dir") {
            directive.kind = FileDirective::Kind::dir;
            directive.mode = 0755;
        }
        std::optional<std::string> marker;
        std::vector<std::string> rest(words.begin(), words.end());
        if (directive.kind == FileDirective::Kind::file && rest.size() > first_argument &&
            rest.back().starts_with("<<")) {
            marker = rest.back().substr(2);
            rest.pop_back();
            if (marker->empty())
                throw ParseError("<< needs an end marker, e.g. <<EOF");
        }
        Arguments args(rest, first_argument);
        if (auto mode = args.text("mode"))
            directive.mode = parse_mode(*mode);
        args.finish();
        if (marker) {
            std::size_t start = index_;
            for (++index_;; ++index_) {
                if (index_ >= lines_.size())
                    throw ParseError("no end marker " + *marker + " for the file started at line " +
                                     std::to_string(start + 1));
                if (lines_[index_] == *marker)
                    break;
                directive.content += lines_[index_] + "\n";
            }
        }
        topology_.files.push_back(std::move(directive));
    }

    std::vector<std::string> lines_;
    std::size_t index_ = 0;
    Topology topology_;
    std::optional<std::vector<std::string>> order_;
};

} // namespace

Topology parse_topology(const std::string& text, const std::string& file_name)
{
    return Parser(text).parse(file_name);
}
