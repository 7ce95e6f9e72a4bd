#include "numbers.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <utility>

std::optional<std::uint64_t> parse_number(std::string_view text, std::uint64_t max)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty())
        return std::nullopt;
    std::uint64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (ec != std::errc() || end != text.data() + text.size() || value > max)
        return std::nullopt;
    return value;
}

namespace {

constexpr std::array<std::pair<std::string_view, int>, 24> errno_names{{
    {"EPERM", EPERM},   {"ENOENT", ENOENT}, {"ESRCH", ESRCH},   {"EINTR", EINTR},
    {"EIO", EIO},       {"ENXIO", ENXIO},   {"E2BIG", E2BIG},   {"EBADF", EBADF},
    {"EAGAIN", EAGAIN}, {"ENOMEM", ENOMEM}, {"EACCES", EACCES}, {"EFAULT", EFAULT},
    {"EBUSY", EBUSY},   {"EEXIST", EEXIST}, {"ENODEV", ENODEV}, {"EINVAL", EINVAL},
    {"ENFILE", ENFILE}, {"EMFILE", EMFILE}, {"ENOTTY", ENOTTY}, {"ENOSPC", ENOSPC},
    {"ERANGE", ERANGE}, {"ENOSYS", ENOSYS}, {"ETIMEDOUT", ETIMEDOUT},
    {"EOVERFLOW", EOVERFLOW},
}};

} // namespace

std::optional<int> parse_errno(std::string_view text)
{
    for (const auto& [name, value] : errno_names)
        if (name == text)
            return value;
    if (auto n = parse_number(text, 4095))
        return static_cast<int>(*n);
    return std::nullopt;
}

std::string errno_name(int err)
{
    for (const auto& [name, value] : errno_names)
        if (value == err)
            return std::string(name);
    return "errno " + std::to_string(err);
}

std::string PciAddress::name() const
{
    char text[32];
    std::snprintf(text, sizeof text, "%04x:%02x:%02x.%x", unsigned{domain}, unsigned{bus},
                  unsigned{device}, unsigned{function});
    return text;
}

namespace {

std::optional<unsigned> hex_field(std::string_view text, unsigned max)
{
    if (text.empty() || text.size() > 4)
        return std::nullopt;
    unsigned value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (ec != std::errc() || end != text.data() + text.size() || value > max)
        return std::nullopt;
    return value;
}

} // namespace

std::optional<PciAddress> parse_pci_address(std::string_view text)
{
    PciAddress address;
    auto colon = text.rfind(':');
    auto dot = text.rfind('.');
    if (colon == std::string_view::npos || dot == std::string_view::npos || dot < colon)
        return std::nullopt;
    auto head = text.substr(0, colon);
    auto first = head.find(':');
    std::string_view domain_text = "0";
    std::string_view bus_text = head;
    if (first != std::string_view::npos) {
        domain_text = head.substr(0, first);
        bus_text = head.substr(first + 1);
    }
    auto domain = hex_field(domain_text, 0xffff);
    auto bus = hex_field(bus_text, 0xff);
    auto device = hex_field(text.substr(colon + 1, dot - colon - 1), 31);
    auto function = hex_field(text.substr(dot + 1), 7);
    if (!domain || !bus || !device || !function)
        return std::nullopt;
    address.domain = static_cast<std::uint16_t>(*domain);
    address.bus = static_cast<std::uint8_t>(*bus);
    address.device = static_cast<std::uint8_t>(*device);
    address.function = static_cast<std::uint8_t>(*function);
    return address;
}
