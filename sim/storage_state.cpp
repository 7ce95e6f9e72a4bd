#include "storage_state.hpp"

#include "numbers.hpp"
#include "state_files.hpp"

namespace state {

namespace {

std::vector<std::string> words(const std::string& line)
{
    std::vector<std::string> out;
    std::size_t pos = 0;
    while ((pos = line.find_first_not_of(" \t", pos)) != std::string::npos) {
        auto end = line.find_first_of(" \t", pos);
        out.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    return out;
}

unsigned number(const std::string& text)
{
    return static_cast<unsigned>(parse_number(text, 0xffffffff).value_or(0));
}

int error(const std::string& text) { return parse_errno(text).value_or(0); }

std::string error_text(int err) { return err == 0 ? "0" : errno_name(err); }

} // namespace

std::string format_storage(const StorageState& storage)
{
    std::string text = "# disk NAME MAJOR MINOR PARTITIONS PCI-NAME|- OPEN BUSY IOCTL RELAY\n"
                       "# volume PATH / diag OPEN BUSY / order DIRECTORY NAME...\n";
    for (const auto& d : storage.disks)
        text += "disk " + d.name + " " + std::to_string(d.major) + " " + std::to_string(d.minor) +
                " " + std::to_string(d.partitions) + " " + (d.pci_name.empty() ? "-" : d.pci_name) +
                " " + error_text(d.open_error) + " " + std::to_string(d.open_busy) + " " +
                error_text(d.ioctl_error) + " " + error_text(d.relay_error) + "\n";
    for (const auto& path : storage.volume_nodes)
        text += "volume " + path + "\n";
    if (storage.diag)
        text += "diag " + error_text(storage.diag->open_error) + " " +
                std::to_string(storage.diag->open_busy) + "\n";
    for (const auto& order : storage.orders) {
        text += "order " + order.directory;
        for (const auto& name : order.first)
            text += " " + name;
        text += "\n";
    }
    return text;
}

StorageState parse_storage(std::string_view text)
{
    StorageState storage;
    for (const auto& line : content_lines(text)) {
        auto w = words(line);
        if (w[0] == "disk" && w.size() == 10) {
            storage.disks.push_back({w[1], number(w[2]), number(w[3]), number(w[4]),
                                     w[5] == "-" ? "" : w[5], error(w[6]), number(w[7]),
                                     error(w[8]), error(w[9])});
        } else if (w[0] == "volume" && w.size() == 2) {
            storage.volume_nodes.push_back(w[1]);
        } else if (w[0] == "diag" && w.size() == 3) {
            storage.diag = StorageDiag{error(w[1]), number(w[2])};
        } else if (w[0] == "order" && w.size() >= 2) {
            storage.orders.push_back({w[1], {w.begin() + 2, w.end()}});
        }
    }
    return storage;
}

} // namespace state
