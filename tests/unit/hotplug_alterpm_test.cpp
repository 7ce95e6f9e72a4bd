// alterpm.conf entries: the accepted forms and their values, the refusals
// with their sites and log lines, and the cache on the token.
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
    t.column = 1;
    t.field = 1;
    t.flags = TOKEN_IS_WORD | TOKEN_LINE_START;
    return t;
}

struct Values {
    uint16_t vendor = 0, device = 0;
    uint8_t revision = 0, any = 0;
};

int parse(LineToken &t, Values &v)
{
    return parse_d0_entry(t, &v.vendor, &v.device, &v.revision, &v.any);
}

TEST(HotplugAlterPm, AcceptedEntries)
{
    struct Case {
        const char *text;
        uint16_t vendor, device;
        uint8_t revision, any;
    } cases[] = {
        {"1234:5678:03", 0x1234, 0x5678, 0x03, 0},
        {"1234::5678:03", 0x1234, 0x5678, 0x03, 0},   // a run of ":" is one separator
        {"::1234:5678:03", 0x1234, 0x5678, 0x03, 0},  // leading ":" skipped
        {"12345:5678:03", 0x2345, 0x5678, 0x03, 0},   // low 16 bits
        {"1234:9abc:*", 0x1234, 0x9abc, '*', 1},
        {"1234:9ABC:*x:y", 0x1234, 0x9abc, '*', 1},   // nothing after "*" is looked at
        {"aBcD:0:1ff", 0xabcd, 0, 0xff, 0},           // revision keeps its low 8 bits
        {"123456789abcdef01:2:3", 0xef01, 2, 3, 0},   // any length, the same in every build
    };
    for (const Case &c : cases) {
        Said said;
        LineToken t = entry(c.text);
        Values v;
        EXPECT_EQ(parse(t, v), 0) << c.text;
        EXPECT_EQ(v.vendor, c.vendor) << c.text;
        EXPECT_EQ(v.device, c.device) << c.text;
        EXPECT_EQ(v.revision, c.revision) << c.text;
        EXPECT_EQ(v.any, c.any) << c.text;
        EXPECT_TRUE(t.flags & TOKEN_PARSED) << c.text;
        EXPECT_EQ(said.stderr_text(), "") << c.text;
    }
}

TEST(HotplugAlterPm, RefusalsNameTheSiteAndTheTextUpToTheFirstField)
{
    struct Case {
        const char *text;
        const char *site;
        const char *logged;  // the working copy as splitting in place leaves it
    } cases[] = {
        {"1234:5678", "bd7", "1234"},          // no third field
        {"1234:5678:", "bd7", "1234"},
        {"1234", "bd7", "1234"},
        {":::", "bd7", ":::"},                 // no field at all
        {"1234:5678::03", "be4", "1234"},      // ":" inside the third field
        {"1234:5678:1:2", "be4", "1234"},
        {"0x1234:5678:03", "be4", "0x1234"},   // no "0x" prefix
        {"::0x1:2:3", "be4", "::0x1"},
        {"1234:56g8:03", "be4", "1234"},
        {"1234:5678:0-3", "be4", "1234"},
        {"1234:x:*", "be4", "1234"},           // the device is checked before the third field
    };
    for (const Case &c : cases) {
        Said said;
        LineToken t = entry(c.text);
        Values v{0x1111, 0x2222, 0x33, 0x44};
        EXPECT_EQ(parse(t, v), -1) << c.text;
        EXPECT_EQ(said.stderr_text(), std::string("ERROR: there was a fatal error(") + c.site + ").\n")
            << c.text;
        EXPECT_EQ(said.log_text(), std::string("ERR: there was a fatal error(") + c.site +
                                       ").\nERR: " + c.logged + "\n")
            << c.text;
        EXPECT_FALSE(t.flags & TOKEN_PARSED) << c.text;
        EXPECT_EQ(v.vendor, 0x1111) << c.text;  // nothing stored
    }
}

TEST(HotplugAlterPm, TextWithoutItsNulWithinSizeIsRefused)
{
    Said said;
    LineToken t = entry("1234:5678:03");
    t.size = 12;  // the NUL is the 13th byte
    t.column = 7;
    Values v;
    EXPECT_EQ(parse(t, v), -1);
    EXPECT_EQ(said.stderr_text(), "ERROR: there was a fatal error(bc6).\n");
    EXPECT_EQ(said.log_text(), "ERR: there was a fatal error(bc6).\nERR: length 12 line 3 column 7\n");
}

TEST(HotplugAlterPm, SecondCallAnswersFromTheCache)
{
    LineToken t = entry("1234:5678:*");
    EXPECT_EQ(parse_d0_entry(t, nullptr, nullptr, nullptr, nullptr), 0);
    ASSERT_TRUE(t.flags & TOKEN_PARSED);
    // Text no longer consulted: a parsed token keeps its values.
    t.text = "not an entry";
    Values v;
    EXPECT_EQ(parse(t, v), 0);
    EXPECT_EQ(v.vendor, 0x1234);
    EXPECT_EQ(v.device, 0x5678);
    EXPECT_EQ(v.revision, '*');
    EXPECT_EQ(v.any, 1);
    // Only the pointers given are written.
    uint16_t device = 0;
    EXPECT_EQ(parse_d0_entry(t, nullptr, &device, nullptr, nullptr), 0);
    EXPECT_EQ(device, 0x5678);
}

} // namespace
