// The hot-plug driver behind /dev/slotag. It takes the two requests, keeps
// exactly the bytes it was handed (the lists are reached through the 32-bit
// addresses in the records, as the driver would), and answers as the state
// directory says: success, or a rejection with err_num fields filled in.

#include "numbers.hpp"
#include "preload/guest_memory.hpp"
#include "preload/module.hpp"
#include "preload/state.hpp"
#include "preload/storage.hpp"
#include "state_files.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace preload {

namespace {

constexpr std::uint32_t max_records = 65536;
constexpr std::size_t hba_list_header = 8;
constexpr std::size_t hba_info_size = 36;
constexpr std::size_t shpc_table_header = 20;
constexpr std::size_t shpc_info_size = 76;
constexpr std::size_t shpc_hba_list_field = 72;

std::uint32_t le32(const std::vector<std::uint8_t>& bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

void put_le32(std::uint8_t* out, std::int32_t value)
{
    auto v = static_cast<std::uint32_t>(value);
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<std::uint8_t>(v >> 8 * i);
}

bool is_32bit_address(std::uintptr_t address)
{
    // two shifts: one by 32 would be out of range in a 32-bit build
    return address >> 16 >> 16 == 0;
}

// Why a request could not be taken as a whole; empty when it could.
struct Fault {
    int err = 0;
    std::string what;
};

// A counted block: a header whose first word is the record count, then the
// records. Reads it whole from the program's memory.
Fault read_block(std::uintptr_t address, std::size_t header, std::size_t record,
                 std::vector<std::uint8_t>& bytes, const std::string& name)
{
    bytes.assign(header, 0);
    if (!read_guest(address, bytes.data(), header))
        return {EFAULT, name + " header unreadable"};
    std::uint32_t count = le32(bytes, 0);
    if (count > max_records)
        return {EINVAL, name + " count " + std::to_string(count) + " too large"};
    bytes.resize(header + record * count);
    if (!read_guest(address + header, bytes.data() + header, record * count))
        return {EFAULT, name + " records unreadable"};
    return {};
}

class SlotagDriver final : public Module {
public:
    bool claims(std::string_view path) const override { return path == "/dev/slotag"; }

    // The node is a character device with no driver behind its number: a
    // stand-in descriptor takes the requests. Anything else a test put
    // there (or nothing) is opened as it is.
    int open(const std::string& path, int flags, mode_t mode) override
    {
        struct stat st;
        if (::stat(path.c_str(), &st) == 0 && S_ISCHR(st.st_mode))
            return stand_in(flags);
        return Module::open(path, flags, mode);
    }

    int ioctl(int /*fd*/, unsigned long request, void* arg) override
    {
        std::lock_guard lock(mutex_);
        // The kernel takes the request number as 32 bits.
        const auto code = static_cast<std::uint32_t>(request);
        if (code == state::set_hba_code)
            return handle(state::Request::set_hba, reinterpret_cast<std::uintptr_t>(arg));
        if (code == state::set_shpc_code)
            return handle(state::Request::set_shpc, reinterpret_cast<std::uintptr_t>(arg));
        errno = ENOTTY;
        return -1;
    }

private:
    int handle(state::Request request, std::uintptr_t arg)
    {
        const std::string prefix = next_prefix();
        const bool table = request == state::Request::set_shpc;
        const std::string base = std::string(state::requests_dir) + "/" + prefix;
        const std::string name = table ? "set_shpc" : "set_hba";
        Fault fault;
        std::vector<std::uint8_t> block;
        // The argument is a 32-bit address: the size field of both requests is 4.
        if (!is_32bit_address(arg)) {
            fault = {EFAULT, "argument is not a 32-bit address"};
        } else {
            fault = table ? read_block(arg, shpc_table_header, shpc_info_size, block, "ShpcInfoTable")
                          : read_block(arg, hba_list_header, hba_info_size, block, "HbaInfoList");
        }
        if (!block.empty())
            write_state(base + "-" + name + ".bin", std::string(block.begin(), block.end()));
        if (fault.err == 0 && table)
            fault = record_controller_lists(block, base);

        const state::DriverRules rules = state::parse_driver(read_state(state::driver_file).value_or(""));
        const state::DriverRule& rule = table ? rules.set_shpc : rules.set_hba;
        std::string result = state::request_name(request) + " " + hex(table ? state::set_shpc_code : state::set_hba_code);
        int err = 0;
        if (fault.err != 0) {
            err = fault.err;
            result += " returned -1 errno=" + errno_name(err) + ": " + fault.what;
        } else if (rule.reject) {
            err = rule.err;
            std::uint8_t fields[8];
            put_le32(fields, rule.err_num);
            put_le32(fields + 4, rule.device_err_num);
            // HbaInfoList.err_num at 4; ShpcInfoTable.err_num and device_err_num at 12 and 16
            write_guest(arg + (table ? 12 : 4), fields, table ? 8 : 4);
            result += " returned -1 errno=" + errno_name(err) + " err_num=" + std::to_string(rule.err_num);
            if (table)
                result += " device_err_num=" + std::to_string(rule.device_err_num);
        } else {
            result += " returned 0";
        }
        write_state(base + ".result", result + "\n");
        if (err != 0) {
            errno = err;
            return -1;
        }
        return 0;
    }

    // Each controller's list, through its 32-bit hba_list address.
    static Fault record_controller_lists(const std::vector<std::uint8_t>& table, const std::string& base)
    {
        const std::uint32_t count = le32(table, 0);
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint32_t address = le32(table, shpc_table_header + i * shpc_info_size + shpc_hba_list_field);
            if (address == 0)
                continue;
            std::vector<std::uint8_t> list;
            const std::string which = "ShpcInfo " + std::to_string(i + 1) + " hba_list";
            Fault fault = read_block(address, hba_list_header, hba_info_size, list, which);
            if (!list.empty())
                write_state(base + "-set_shpc-hba_list-" + std::to_string(i + 1) + ".bin",
                            std::string(list.begin(), list.end()));
            if (fault.err != 0)
                return fault;
        }
        return {};
    }

    // Requests are numbered across runs on the same root.
    static std::string next_prefix()
    {
        unsigned count = 0;
        for (const auto& name : list_state(state::requests_dir))
            if (name.ends_with(".result"))
                ++count;
        return state::request_prefix(count + 1);
    }

    static std::string hex(std::uint32_t value)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(value));
        return text;
    }

    std::mutex mutex_;
};

} // namespace

Module& slotag_driver()
{
    static SlotagDriver module;
    return module;
}

} // namespace preload
