#include "state_files.hpp"

#include "numbers.hpp"

#include <cerrno>
#include <cstdio>

namespace state {

std::vector<std::string> content_lines(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        auto first = line.find_first_not_of(" \t\r");
        if (first == std::string_view::npos || line[first] == '#')
            continue;
        auto last = line.find_last_not_of(" \t\r");
        lines.emplace_back(line.substr(first, last - first + 1));
    }
    return lines;
}

namespace {

std::vector<std::string_view> words(std::string_view line)
{
    std::vector<std::string_view> out;
    while (true) {
        auto start = line.find_first_not_of(" \t");
        if (start == std::string_view::npos)
            break;
        line.remove_prefix(start);
        auto end = line.find_first_of(" \t");
        out.push_back(line.substr(0, end));
        if (end == std::string_view::npos)
            break;
        line.remove_prefix(end);
    }
    return out;
}

std::string hex(std::uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(value));
    return text;
}

} // namespace

std::string format_shpc(const std::vector<ShpcWindow>& windows)
{
    std::string text = "# function capability-offset register=value...\n";
    for (const auto& window : windows) {
        text += window.function + " " + hex(window.cap);
        for (const auto& [index, value] : window.regs)
            text += " " + std::to_string(index) + "=" + hex(value);
        text += "\n";
    }
    return text;
}

std::vector<ShpcWindow> parse_shpc(std::string_view text)
{
    std::vector<ShpcWindow> windows;
    for (const auto& line : content_lines(text)) {
        auto parts = words(line);
        if (parts.size() < 2)
            continue;
        auto cap = parse_number(parts[1], 0xff);
        if (!cap)
            continue;
        ShpcWindow window{std::string(parts[0]), static_cast<std::uint8_t>(*cap), {}};
        for (std::size_t i = 2; i < parts.size(); ++i) {
            auto eq = parts[i].find('=');
            if (eq == std::string_view::npos)
                continue;
            auto index = parse_number(parts[i].substr(0, eq), 0xff);
            auto value = parse_number(parts[i].substr(eq + 1), 0xffffffff);
            if (index && value)
                window.regs[static_cast<std::uint8_t>(*index)] = static_cast<std::uint32_t>(*value);
        }
        windows.push_back(std::move(window));
    }
    return windows;
}

namespace {

void format_rule(std::string& text, const char* name, const DriverRule& rule, bool device)
{
    if (!rule.reject)
        return;
    text += std::string(name) + " reject errno=" + errno_name(rule.err) +
            " err_num=" + std::to_string(rule.err_num);
    if (device)
        text += " device_err_num=" + std::to_string(rule.device_err_num);
    text += "\n";
}

std::int32_t signed_value(std::string_view text)
{
    bool negative = !text.empty() && text[0] == '-';
    if (negative)
        text.remove_prefix(1);
    auto value = parse_number(text, 0x7fffffff);
    if (!value)
        return 0;
    return negative ? -static_cast<std::int32_t>(*value) : static_cast<std::int32_t>(*value);
}

} // namespace

std::string format_driver(const DriverRules& rules)
{
    std::string text = "# request reject errno=E err_num=N [device_err_num=M]; absent: succeeds\n";
    format_rule(text, "set_hba", rules.set_hba, false);
    format_rule(text, "set_shpc", rules.set_shpc, true);
    return text;
}

DriverRules parse_driver(std::string_view text)
{
    DriverRules rules;
    for (const auto& line : content_lines(text)) {
        auto parts = words(line);
        if (parts.size() < 2 || parts[1] != "reject")
            continue;
        DriverRule* rule = parts[0] == "set_hba"    ? &rules.set_hba
                           : parts[0] == "set_shpc" ? &rules.set_shpc
                                                    : nullptr;
        if (!rule)
            continue;
        rule->reject = true;
        rule->err = EIO; // when the line names none
        for (std::size_t i = 2; i < parts.size(); ++i) {
            auto eq = parts[i].find('=');
            if (eq == std::string_view::npos)
                continue;
            auto key = parts[i].substr(0, eq);
            auto value = parts[i].substr(eq + 1);
            if (key == "errno") {
                if (auto err = parse_errno(value))
                    rule->err = *err;
            } else if (key == "err_num") {
                rule->err_num = signed_value(value);
            } else if (key == "device_err_num") {
                rule->device_err_num = signed_value(value);
            }
        }
    }
    return rules;
}

std::string request_name(Request request)
{
    return request == Request::set_hba ? "SET_HBA" : "SET_SHPC";
}

std::string request_prefix(unsigned number)
{
    char text[16];
    std::snprintf(text, sizeof text, "%03u", number);
    return text;
}

} // namespace state
