// parse_busid on arbitrary text. The verdict and the numbers must be those
// of the rule, written here as a pattern (the parser splits the way strtok
// does); a text whose NUL lies outside the limit must be refused; null out
// pointers only skip storing.
#include <regex>
#include <string>

#include "fuzz/harness.h"
#include "table/busid.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const char *s = text.c_str();
    const size_t len = strlen(s);  // cut at the first NUL of the input

    uint16_t domain = 0;
    uint8_t bus = 0, device = 0, function = 0;
    const int r = parse_busid(s, static_cast<uint32_t>(len + 1), &domain, &bus, &device, &function);
    FUZZ_CHECK(parse_busid(s, static_cast<uint32_t>(len + 1), nullptr, nullptr, nullptr, nullptr) == r,
               "null out pointers change the verdict: " + text);
    FUZZ_CHECK(parse_busid(s, static_cast<uint32_t>(len), &domain, &bus, &device, &function) == -1,
               "no NUL within the limit, yet accepted: " + text);
    static const std::regex rule("^:*([[:xdigit:]]+):+([[:xdigit:]]+):\\.*([[:xdigit:]]+)\\."
                                 "([[:xdigit:]]+)$");
    std::cmatch m;
    const bool valid = std::regex_match(s, m, rule);
    FUZZ_CHECK((r == 0) == valid, "verdict differs from the rule: " + text);
    if (!valid)
        return 0;
    // Each number keeps its low bits.
    auto low = [&m](int i) {
        unsigned long long v = 0;
        for (char c : m[i].str())
            v = v << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
        return v;
    };
    FUZZ_CHECK(domain == static_cast<uint16_t>(low(1)) && bus == static_cast<uint8_t>(low(2)) &&
                   device == static_cast<uint8_t>(low(3)) && function == static_cast<uint8_t>(low(4)),
               text);
    return 0;
}
