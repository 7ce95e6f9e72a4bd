// alterpm.conf entries: the accepted forms and their values, the refusals
// with their sites and the text logged.
#include <string>

#include <gtest/gtest.h>

#include "hotplug/alterpm.h"
#include "hotplug_capture.h"

namespace {

LineToken entry(const std::string &text)
{
    LineToken t;
    t.text = text;
    t.size = static_cast<uint32_t>(text.size() + 1);
    t.line = 3;
    t.column = 7;
    t.flags = TOKEN_IS_WORD | TOKEN_LINE_START;
    return t;
}

TEST(HotplugAlterPm, AcceptedEntries)
{
    struct Case {
        const char *text;
        uint16_t vendor, device;
        uint8_t revision, any;
    } cases[] = {
        {"1234:5678:03", 0x1234, 0x5678, 0x03, 0},
        {"::1234::5678:03", 0x1234, 0x5678, 0x03, 0},  // runs of ":" before the third field
        {"12345:5678:03", 0x2345, 0x5678, 0x03, 0},    // low 16 bits
        {"123456789abcdef01:2:1ff", 0xef01, 2, 0xff, 0},  // any length, the same in every build
        {"1234:9ABC:*x:y", 0x1234, 0x9abc, '*', 1},    // nothing after "*" is looked at
    };
    for (const Case &c : cases) {
        Said said;
        LineToken t = entry(c.text);
        uint16_t vendor = 0, device = 0;
        uint8_t revision = 0, any = 9;
        EXPECT_EQ(parse_d0_entry(t, &vendor, &device, &revision, &any), 0) << c.text;
        EXPECT_EQ(vendor, c.vendor) << c.text;
        EXPECT_EQ(device, c.device) << c.text;
        EXPECT_EQ(revision, c.revision) << c.text;
        EXPECT_EQ(any, c.any) << c.text;
        EXPECT_EQ(said.stderr_text(), "") << c.text;
    }
}

TEST(HotplugAlterPm, RefusedEntries)
{
    struct Case {
        const char *text;
        const char *site;
        const char *logged;  // the working copy as splitting in place leaves it
    } cases[] = {
        {"1234:5678", "bd7", "1234"},     {"1234:5678:", "bd7", "1234"},
        {":::", "bd7", ":::"},            {"1234:5678::03", "be4", "1234"},
        {"1234:5678:1:2", "be4", "1234"}, {"0x1234:5678:03", "be4", "0x1234"},
        {"::0x1:2", "be4", "::0x1"},      {"1234:x:*", "be4", "1234"},
    };
    for (const Case &c : cases) {
        Said said;
        LineToken t = entry(c.text);
        uint16_t vendor = 0x1111;
        EXPECT_EQ(parse_d0_entry(t, &vendor, nullptr, nullptr, nullptr), -1) << c.text;
        EXPECT_EQ(said.stderr_text(), std::string("ERROR: there was a fatal error(") + c.site + ").\n");
        EXPECT_EQ(said.log_text(),
                  std::string("ERR: there was a fatal error(") + c.site + ").\nERR: " + c.logged + "\n");
        EXPECT_EQ(vendor, 0x1111) << c.text;
    }
    Said said;
    LineToken t = entry("1234:5678:03");
    t.size = 12;  // its NUL is the 13th byte
    EXPECT_EQ(parse_d0_entry(t, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(said.log_text(), "ERR: there was a fatal error(bc6).\nERR: length 12 line 3 column 7\n");
}

} // namespace
