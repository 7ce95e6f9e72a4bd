// parse_busid on arbitrary text. An accepted busID printed back in the
// kernel's form must parse to the same values; a text whose NUL lies
// outside the limit must be refused; null out pointers only skip storing.
#include <cstdio>
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
    FUZZ_CHECK(r == 0 || r == -1, text);
    FUZZ_CHECK(parse_busid(s, static_cast<uint32_t>(len + 1), nullptr, nullptr, nullptr, nullptr) == r,
               "null out pointers change the verdict: " + text);
    FUZZ_CHECK(parse_busid(s, static_cast<uint32_t>(len), &domain, &bus, &device, &function) == -1,
               "no NUL within the limit, yet accepted: " + text);
    if (r != 0)
        return 0;

    char printed[32];
    snprintf(printed, sizeof printed, "%04x:%02x:%02x.%x", domain, bus, device, function);
    uint16_t d2 = 0;
    uint8_t b2 = 0, v2 = 0, f2 = 0;
    FUZZ_CHECK(parse_busid(printed, sizeof printed, &d2, &b2, &v2, &f2) == 0, printed);
    FUZZ_CHECK(d2 == domain && b2 == bus && v2 == device && f2 == function,
               text + " -> " + printed);
    return 0;
}
