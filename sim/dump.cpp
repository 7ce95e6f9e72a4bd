#include "dump.hpp"

#include "dump_vds.hpp"
#include "files.hpp"
#include "state_files.hpp"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr std::size_t hba_info_size = 36;
constexpr std::size_t shpc_info_size = 76;

// A recorded block; reads past its end give 0 and mark it short.
class Bytes {
public:
    explicit Bytes(std::string data) : data_(std::move(data)) {}

    std::size_t size() const { return data_.size(); }
    bool has(std::size_t offset, std::size_t width) const { return offset + width <= data_.size(); }
    std::uint64_t le(std::size_t offset, std::size_t width) const
    {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width && offset + i < data_.size(); ++i)
            value |= static_cast<std::uint64_t>(static_cast<unsigned char>(data_[offset + i])) << 8 * i;
        return value;
    }

    // The NUL-terminated text of a fixed field, quoted, and a note when the
    // field is not terminated or not zero after its terminator.
    std::string text_field(std::size_t offset, std::size_t width) const
    {
        std::string out = "\"";
        std::size_t i = 0;
        for (; i < width; ++i) {
            unsigned char c = static_cast<unsigned char>(le(offset + i, 1));
            if (c == 0)
                break;
            if (c >= 0x20 && c < 0x7f && c != '"' && c != '\\') {
                out += static_cast<char>(c);
            } else {
                char esc[8];
                std::snprintf(esc, sizeof esc, "\\x%02x", c);
                out += esc;
            }
        }
        out += "\"";
        if (i == width)
            return out + " (not terminated)";
        for (++i; i < width; ++i)
            if (le(offset + i, 1) != 0)
                return out + " (bytes after the end are not zero)";
        return out;
    }

private:
    std::string data_;
};

std::string hex(std::uint64_t value, int digits)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

// A reserved field is shown only when it is not zero, so that a fault stands out.
std::string reserved(const Bytes& b, std::size_t offset, std::size_t width)
{
    std::uint64_t value = b.le(offset, width);
    if (value == 0)
        return "";
    return " reserved@" + std::to_string(offset) + "=" + hex(value, 0);
}

void print_hba_info(const Bytes& b, std::size_t at, std::size_t number, const std::string& indent)
{
    std::printf("%sHbaInfo %zu: magic=%s alt_pm=%llu domain=%s bus=%s device=%s function=%s "
                "revision=%s pm_cap=%s header_type=%s bus_id=%s\n",
                indent.c_str(), number, hex(b.le(at, 4), 8).c_str(),
                static_cast<unsigned long long>(b.le(at + 4, 4)), hex(b.le(at + 8, 2), 4).c_str(),
                hex(b.le(at + 10, 1), 2).c_str(), hex(b.le(at + 11, 1), 2).c_str(),
                hex(b.le(at + 12, 1), 1).c_str(), hex(b.le(at + 13, 1), 2).c_str(),
                hex(b.le(at + 14, 1), 2).c_str(), hex(b.le(at + 15, 1), 2).c_str(),
                b.text_field(at + 16, 20).c_str());
}

std::int32_t signed32(const Bytes& b, std::size_t offset)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(b.le(offset, 4)));
}

void print_hba_list(const Bytes& b, const std::string& indent)
{
    const std::uint64_t count = b.le(0, 4);
    std::printf("%sHbaInfoList count=%llu err_num=%d\n", indent.c_str(),
                static_cast<unsigned long long>(count), signed32(b, 4));
    for (std::uint64_t i = 0; i < count && b.has(8 + i * hba_info_size, hba_info_size); ++i)
        print_hba_info(b, 8 + i * hba_info_size, i + 1, indent + "  ");
    if (b.size() != 8 + count * hba_info_size)
        std::printf("%s(recorded %zu bytes, not 8 + 36 x count)\n", indent.c_str(), b.size());
}

void print_shpc_info(const Bytes& b, std::size_t at, std::size_t number,
                     const std::optional<std::string>& list)
{
    std::printf("  ShpcInfo %zu: magic=%s domain=%s bus=%s device=%s function=%s revision=%s "
                "header_type=%s bus_id=%s%s%s\n",
                number, hex(b.le(at, 4), 8).c_str(), hex(b.le(at + 8, 2), 4).c_str(),
                hex(b.le(at + 10, 1), 2).c_str(), hex(b.le(at + 11, 1), 2).c_str(),
                hex(b.le(at + 12, 1), 1).c_str(), hex(b.le(at + 13, 1), 2).c_str(),
                hex(b.le(at + 15, 1), 2).c_str(), b.text_field(at + 16, 20).c_str(),
                reserved(b, at + 4, 4).c_str(), reserved(b, at + 14, 1).c_str());
    std::printf("    class_code=%s secondary_bus=%s cap_offset=%s first_device=%llu slot_count=%llu%s\n",
                hex(b.le(at + 36, 2), 4).c_str(), hex(b.le(at + 38, 1), 2).c_str(),
                hex(b.le(at + 39, 1), 2).c_str(), static_cast<unsigned long long>(b.le(at + 40, 1)),
                static_cast<unsigned long long>(b.le(at + 41, 1)), reserved(b, at + 42, 2).c_str());
    std::printf("    slots_available_1=%s slots_available_2=%s slot_config=%s sec_bus_config=%s%s\n",
                hex(b.le(at + 44, 4), 8).c_str(), hex(b.le(at + 48, 4), 8).c_str(),
                hex(b.le(at + 52, 4), 8).c_str(), hex(b.le(at + 56, 4), 8).c_str(),
                reserved(b, at + 60, 8).c_str());
    // The address itself changes from run to run; only whether it is set is shown.
    const bool set = b.le(at + 72, 4) != 0;
    std::printf("    hba_count=%llu hba_list=%s\n", static_cast<unsigned long long>(b.le(at + 68, 4)),
                !set ? "0" : list ? "set" : "set (not read)");
    if (list)
        print_hba_list(Bytes(*list), "    ");
}

void print_shpc_table(const Bytes& b, const std::string& base)
{
    const std::uint64_t count = b.le(0, 4);
    std::printf("  ShpcInfoTable count=%llu total_size=%llu max_hba_count=%llu err_num=%d "
                "device_err_num=%d\n",
                static_cast<unsigned long long>(count), static_cast<unsigned long long>(b.le(4, 4)),
                static_cast<unsigned long long>(b.le(8, 4)), signed32(b, 12), signed32(b, 16));
    for (std::uint64_t i = 0; i < count && b.has(20 + i * shpc_info_size, shpc_info_size); ++i)
        print_shpc_info(b, 20 + i * shpc_info_size, i + 1,
                        read_file(base + "-set_shpc-hba_list-" + std::to_string(i + 1) + ".bin"));
    if (b.size() != 20 + count * shpc_info_size)
        std::printf("  (recorded %zu bytes, not 20 + 76 x count)\n", b.size());
}

} // namespace

bool dump_requests(const std::string& root, bool clear)
{
    const std::string dir = root + "/state/" + state::requests_dir;
    if (!is_directory(dir)) {
        std::fprintf(stderr, "slotag-sim: %s: not a simulated root\n", root.c_str());
        return false;
    }
    const auto names = list_dir(dir);
    unsigned shown = 0;
    for (unsigned number = 1;; ++number) {
        const std::string base = dir + "/" + state::request_prefix(number);
        auto result = read_file(base + ".result");
        if (!result)
            break;
        ++shown;
        if (!result->empty() && result->back() == '\n')
            result->pop_back();
        std::printf("request %u: %s\n", number, result->c_str());
        if (auto list = read_file(base + "-set_hba.bin"))
            print_hba_list(Bytes(*list), "  ");
        if (auto table = read_file(base + "-set_shpc.bin"))
            print_shpc_table(Bytes(*table), base);
    }
    if (shown == 0)
        std::printf("no driver requests\n");
    dump_vds_requests(dir);
    std::fflush(stdout);
    if (clear)
        for (const auto& name : names)
            if (::unlink((dir + "/" + name).c_str()) != 0)
                throw_errno(dir + "/" + name);
    return true;
}
