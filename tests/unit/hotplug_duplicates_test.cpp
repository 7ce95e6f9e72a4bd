// Duplicate marks on the busIDs of the label table: which tokens get which
// marks, and where a busID that does not parse stops the marking.
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hotplug/busid_tokens.h"
#include "hotplug_capture.h"
#include "table/busid.h"

namespace {

void add_word(TokenList &table, const std::string &text, uint32_t field)
{
    LineToken t;
    t.text = text;
    t.size = static_cast<uint32_t>(text.size() + 1);
    t.field = field;
    t.flags = TOKEN_IS_WORD | (field == 1 ? TOKEN_LINE_START : 0);
    table.push_back(t);
}

// A table of entries "labelN,/dev/x BUSID", each followed by a comment and
// an end of line, as the load builds it.
TokenList table_of(const std::vector<std::string> &busids)
{
    TokenList table;
    int n = 0;
    for (const std::string &b : busids) {
        add_word(table, "label" + std::to_string(n++) + ",/dev/x", 1);
        add_word(table, b, 2);
        LineToken comment;
        comment.text = "#0000:00:00.0";  // not a busID word: never marked
        comment.size = 14;
        comment.field = 3;
        comment.flags = TOKEN_IS_COMMENT;
        table.push_back(comment);
        LineToken eol;
        eol.text = "\n";
        eol.size = 2;
        eol.field = 4;
        eol.flags = TOKEN_IS_EOL | TOKEN_LINE_END;
        table.push_back(eol);
    }
    return table;
}

// The marks of the busID words, in table order: "-", "D" or "DF".
std::vector<std::string> marks(const TokenList &table)
{
    std::vector<std::string> out;
    for (const LineToken &t : table) {
        if (!is_busid_token(t)) {
            EXPECT_EQ(t.flags & (TOKEN_DUP_DEVICE | TOKEN_DUP_FUNCTION), 0u) << t.text;
            continue;
        }
        std::string m;
        if (t.flags & TOKEN_DUP_DEVICE)
            m += "D";
        if (t.flags & TOKEN_DUP_FUNCTION)
            m += "F";
        out.push_back(m.empty() ? "-" : m);
    }
    return out;
}

using Marks = std::vector<std::string>;

TEST(HotplugDuplicates, RepeatsAreMarkedAfterTheirFirstOccurrence)
{
    TokenList table = table_of({"0000:05:00.0", "0000:05:00.1", "0000:05:00.0", "0000:06:00.0",
                                "0:5:0.1", "0001:05:00.0", "0000:05:01.0", "0000:05:00.0"});
    ASSERT_EQ(mark_duplicate_busids(table), 0);
    // Functions 0 and 1 of one device: the second repeats the device only.
    // Different texts of the same function are the same function.
    EXPECT_EQ(marks(table), (Marks{"-", "D", "DF", "-", "DF", "-", "-", "DF"}));
}

TEST(HotplugDuplicates, EmptyTableAndSingleEntry)
{
    TokenList empty;
    EXPECT_EQ(mark_duplicate_busids(empty), 0);
    TokenList one = table_of({"0000:03:00.0"});
    EXPECT_EQ(mark_duplicate_busids(one), 0);
    EXPECT_EQ(marks(one), (Marks{"-"}));
}

TEST(HotplugDuplicates, ExactDuplicatesAlreadyMarkedTakeNoPart)
{
    TokenList table = table_of({"0000:05:00.0", "not a busID", "0000:05:00.0"});
    auto it = std::next(table.begin(), 5);  // the second busID word
    ASSERT_EQ(it->text, "not a busID");
    it->flags |= TOKEN_DUP_DEVICE | TOKEN_DUP_FUNCTION;
    Said said;
    ASSERT_EQ(mark_duplicate_busids(table), 0);  // never parsed
    EXPECT_EQ(marks(table), (Marks{"-", "DF", "DF"}));
    EXPECT_EQ(said.stderr_text(), "");
}

// The marking as the pairwise walk does it: for each busID not marked as
// an exact duplicate, mark every later one not so marked that repeats it.
Marks pairwise_marks(const std::vector<std::string> &busids)
{
    struct Id {
        uint16_t domain;
        uint8_t bus, device, function;
        bool dev = false, fn = false;
    };
    std::vector<Id> ids;
    for (const std::string &b : busids) {
        Id id{};
        EXPECT_EQ(parse_busid(b.c_str(), static_cast<uint32_t>(b.size() + 1), &id.domain, &id.bus,
                              &id.device, &id.function),
                  0);
        ids.push_back(id);
    }
    for (size_t e = 0; e < ids.size(); e++) {
        if (ids[e].dev && ids[e].fn)
            continue;
        for (size_t f = e + 1; f < ids.size(); f++) {
            if (ids[f].dev && ids[f].fn)
                continue;
            if (ids[f].domain == ids[e].domain && ids[f].bus == ids[e].bus &&
                ids[f].device == ids[e].device) {
                ids[f].dev = true;
                if (ids[f].function == ids[e].function)
                    ids[f].fn = true;
            }
        }
    }
    Marks out;
    for (const Id &id : ids)
        out.push_back(id.dev ? (id.fn ? "DF" : "D") : "-");
    return out;
}

TEST(HotplugDuplicates, SameMarksAsThePairwiseWalk)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; round++) {
        // A small address space, so that repeats of every kind are common.
        std::vector<std::string> busids;
        int n = static_cast<int>(random() % 24);
        for (int i = 0; i < n; i++) {
            char text[32];
            snprintf(text, sizeof text, "%04x:%02x:%02x.%x", static_cast<unsigned>(random() % 2),
                     static_cast<unsigned>(random() % 2), static_cast<unsigned>(random() % 3),
                     static_cast<unsigned>(random() % 3));
            busids.push_back(text);
        }
        TokenList table = table_of(busids);
        ASSERT_EQ(mark_duplicate_busids(table), 0);
        ASSERT_EQ(marks(table), pairwise_marks(busids)) << "round " << round;
    }
}

TEST(HotplugDuplicates, ThousandsOfBusIdsStayCheap)
{
    std::vector<std::string> busids;
    for (int i = 0; i < 20000; i++) {
        char text[32];
        snprintf(text, sizeof text, "%04x:%02x:%02x.%x", i >> 12, (i >> 4) & 0xff, i & 0xf, 0);
        busids.push_back(text);
    }
    busids.push_back(busids[123]);
    TokenList table = table_of(busids);
    // Pairwise this is 2·10⁸ parses; once each it is instant.
    ASSERT_EQ(mark_duplicate_busids(table), 0);
    Marks m = marks(table);
    EXPECT_EQ(std::count(m.begin(), m.end(), "-"), 20000);
    EXPECT_EQ(m.back(), "DF");
}

TEST(HotplugDuplicates, AFirstBusIdThatDoesNotParseIsSite3592)
{
    Said said;
    TokenList table = table_of({"0000:05:00", "0000:05:00.0", "0000:05:00.0"});
    EXPECT_EQ(mark_duplicate_busids(table), -1);
    EXPECT_EQ(said.stderr_text(), "ERROR: failed to get a busID(321).\n"
                                  "ERROR: please refer to the manual for more information.\n");
    std::string log = said.log_text();
    EXPECT_NE(log.find("ERR: failed to get a busID(321).\n"), std::string::npos);
    EXPECT_EQ(log.substr(log.rfind("ERR: ")), "ERR: callee build_shpc_hba_info(3592).\n");
    EXPECT_EQ(marks(table), (Marks{"-", "-", "-"}));
}

TEST(HotplugDuplicates, ALaterBusIdThatDoesNotParseIsSite3613)
{
    Said said;
    // The first failure met is the first bad busID after the first one; the
    // first busID has marked its repeats before it.
    TokenList table = table_of({"0000:05:00.0", "0000:05:00.0", "0000:06:00.0", "0000:05:00.1",
                                "x:05:00.0", "0000:05:00.0", "0000:05:zz.0"});
    EXPECT_EQ(mark_duplicate_busids(table), -1);
    EXPECT_EQ(said.stderr_text(), "ERROR: failed to get a busID(32a).\n"
                                  "ERROR: please refer to the manual for more information.\n");
    std::string log = said.log_text();
    EXPECT_EQ(log.find("zz"), std::string::npos);  // the later bad one is never parsed
    EXPECT_EQ(log.substr(log.rfind("ERR: ")), "ERR: callee build_shpc_hba_info(3613).\n");
    EXPECT_EQ(marks(table), (Marks{"-", "DF", "-", "D", "-", "-", "-"}));
}

TEST(HotplugDuplicates, BusIdWithoutItsNulWithinSizeFails)
{
    Said said;
    TokenList table = table_of({"0000:05:00.0", "0000:06:00.0"});
    std::next(table.begin(), 5)->size = 12;
    EXPECT_EQ(mark_duplicate_busids(table), -1);
    EXPECT_EQ(said.stderr_text(), "ERROR: failed to get a busID(311).\n"
                                  "ERROR: please refer to the manual for more information.\n");
    std::string log = said.log_text();
    EXPECT_NE(log.find("bus_id_len 12"), std::string::npos);
    EXPECT_EQ(log.substr(log.rfind("ERR: ")), "ERR: callee build_shpc_hba_info(3613).\n");
}

} // namespace
