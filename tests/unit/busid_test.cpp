// busID parsing: the accepted forms, the refusals and their codes.
#include <cstdio>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "table/busid.h"

namespace {

// Captures what parse_busid writes on standard error.
std::string parse_stderr(const char *text, uint32_t limit, int *rc, BusId *id)
{
    fflush(stderr);
    int saved = dup(2);
    FILE *tmp = tmpfile();
    dup2(fileno(tmp), 2);
    *rc = parse_busid(text, limit, &id->domain, &id->bus, &id->device, &id->function);
    fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::string out;
    rewind(tmp);
    char buf[256];
    while (fgets(buf, sizeof buf, tmp))
        out += buf;
    fclose(tmp);
    return out;
}

TEST(BusId, AcceptedForms)
{
    struct Case {
        const char *text;
        BusId want;
    } cases[] = {
        {"0000:03:00.0", {0, 3, 0, 0}},
        {"0:3:0.0", {0, 3, 0, 0}},
        {"000A:FF:1f.7", {0xa, 0xff, 0x1f, 7}},
        {"::0000:03:00.0", {0, 3, 0, 0}},    // leading separators are skipped
        {"12345:1ff:40.9", {0x2345, 0xff, 0x40, 9}},  // low bits kept, no range check
        {"fffffffffffffffffffff1:0:0.0", {0xfff1, 0, 0, 0}},
    };
    for (const auto &c : cases) {
        int rc;
        BusId id{};
        EXPECT_EQ(parse_stderr(c.text, 64, &rc, &id), "") << c.text;
        EXPECT_EQ(rc, 0) << c.text;
        EXPECT_EQ(id.domain, c.want.domain) << c.text;
        EXPECT_EQ(id.bus, c.want.bus) << c.text;
        EXPECT_EQ(id.device, c.want.device) << c.text;
        EXPECT_EQ(id.function, c.want.function) << c.text;
    }
    EXPECT_EQ(parse_busid("0000:03:00.0", 13, nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(BusId, RefusalsNameTheirCause)
{
    const std::string missing = "ERROR: failed to get a busID(321).\n"
                                "ERROR: please refer to the manual for more information.\n";
    const std::string bad_digit = "ERROR: failed to get a busID(32a).\n"
                                  "ERROR: please refer to the manual for more information.\n";
    struct Case {
        const char *text;
        uint32_t limit;
        std::string want;
    } cases[] = {
        {"0000:03:00", 64, missing},
        {"0000:03:00.", 64, missing},
        {"", 64, missing},
        {"0000:03.00.0", 64, bad_digit},
        {"0000:03:00.1.2", 64, bad_digit},
        {"0x0:03:00.0", 64, bad_digit},
        {"0000:03:00.0x", 64, bad_digit},
        {"0000:03::00.0", 64, bad_digit},
        {"0000:03:00.0", 12, "ERROR: failed to get a busID(311).\n"
                             "ERROR: please refer to the manual for more information.\n"},
    };
    for (const auto &c : cases) {
        int rc;
        BusId id{};
        EXPECT_EQ(parse_stderr(c.text, c.limit, &rc, &id), c.want) << c.text;
        EXPECT_EQ(rc, -1) << c.text;
    }
}

} // namespace
