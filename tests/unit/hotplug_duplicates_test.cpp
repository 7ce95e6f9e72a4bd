// Duplicate marks on the label table's busIDs: the same marks as comparing
// every busID with every later one, the earlier busID each exact duplicate
// repeats, and the site at which a busID that does not parse stops the
// marking.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hotplug/busid_tokens.h"
#include "hotplug_capture.h"

namespace {

// Lines "labelN,/dev/x BUSID #comment" as the load builds them.
TokenList table_of(const std::vector<std::string> &busids)
{
    TokenList table;
    for (const std::string &b : busids) {
        for (auto [text, field, flags] : {std::tuple<std::string, uint32_t, uint32_t>{"l,/dev/x", 1, 0x11},
                                          {b, 2, 0x10}, {"#" + b, 3, 0x20}, {"\n", 4, 0x42}}) {
            LineToken t;
            t.text = text;
            t.size = static_cast<uint32_t>(text.size() + 1);
            t.field = field;
            t.flags = flags;
            table.push_back(t);
        }
    }
    return table;
}

int mark(TokenList &table, const DuplicateMarking &how = {})
{
    std::vector<BusIdWord> words;
    return mark_duplicate_busids(table, words, how);
}

bool is_exact_duplicate(const LineToken &t)
{
    return (t.flags & TOKEN_DUP_FUNCTION) && (t.flags & TOKEN_DUP_DEVICE);
}

// The busID words' marks: '-' none, 'D' device repeated, 'F' function too.
std::string marks(const TokenList &table)
{
    std::string out;
    for (const LineToken &t : table) {
        bool device = t.flags & TOKEN_DUP_DEVICE, function = t.flags & TOKEN_DUP_FUNCTION;
        if (t.field != 2)
            EXPECT_FALSE(device || function) << std::string_view(t.text);
        else
            out += function ? (device ? 'F' : '?') : device ? 'D' : '-';
    }
    return out;
}

TEST(HotplugDuplicates, SameMarksAsComparingEveryPair)
{
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; round++) {
        // A small address space, so that repeats of every kind are common;
        // spelled two ways, since the parsed values are compared.
        std::vector<unsigned> ids(random() % 24);
        std::vector<std::string> busids;
        for (unsigned &id : ids) {
            id = static_cast<unsigned>(random() % 24);  // device bits 4:2, function bits 1:0
            char text[32];
            snprintf(text, sizeof text, random() % 2 ? "0000:05:%02x.%x" : "0:5:%x.%x", id >> 2, id & 3);
            busids.push_back(text);
        }
        TokenList table = table_of(busids);
        std::vector<BusIdWord> marked;
        ASSERT_EQ(mark_duplicate_busids(table, marked), 0);
        // The pairwise walk: each busID not yet an exact duplicate marks the later ones.
        TokenList want = table_of(busids);
        std::vector<LineToken *> words;
        for (LineToken &t : want)
            if (t.field == 2)
                words.push_back(&t);
        for (size_t e = 0; e < ids.size(); e++) {
            for (size_t f = e + 1; f < ids.size() && !is_exact_duplicate(*words[e]); f++) {
                if (!is_exact_duplicate(*words[f]) && ids[f] >> 2 == ids[e] >> 2)
                    words[f]->flags |= TOKEN_DUP_DEVICE | (ids[f] == ids[e] ? TOKEN_DUP_FUNCTION : 0);
            }
        }
        ASSERT_EQ(marks(table), marks(want)) << "round " << round;
        // An exact duplicate names the first busID of its function.
        for (size_t f = 0; f < ids.size(); f++) {
            size_t first = std::find(ids.begin(), ids.end(), ids[f]) - ids.begin();
            EXPECT_EQ(marked[f].same_as, first == f ? BusIdWord::NONE : first) << "round " << round;
        }
    }
}

TEST(HotplugDuplicates, ParseFailuresStopAtTheSiteOfThePairwiseWalk)
{
    struct Case {
        std::vector<std::string> busids;
        std::string site;
        std::string marks;
    } cases[] = {
        {{"0000:05:00", "0000:05:00.0", "0000:05:00.0"}, "3592", "---"},
        // The first busID is compared with every later one in turn: it has
        // marked those before the first bad one, which stops the walk.
        {{"0:5:0.0", "0:5:0.0", "0:6:0.0", "0:5:0.1", "x:5:0.0", "0:5:0.0", "0:5:z.0"}, "3613", "-F-D---"},
    };
    for (const Case &c : cases) {
        Said said;
        TokenList table = table_of(c.busids);
        EXPECT_EQ(mark(table), -1);
        std::string log = said.log_text();
        EXPECT_EQ(log.substr(log.rfind("ERR: ")), "ERR: callee build_shpc_hba_info(" + c.site + ").\n");
        EXPECT_EQ(log.find("z.0"), std::string::npos);  // a later bad busID is never parsed
        EXPECT_EQ(marks(table), c.marks);
    }
}

} // namespace

// A report's marking: a busID that does not parse is handed to on_refused
// and takes no part; the others are marked as if it were absent, and the
// marking neither stops nor logs a callee line.
TEST(HotplugDuplicates, RefusedBusIdsAreSkippedWhenAsked)
{
    Said said;
    TokenList table = table_of({"0:5:0", "0:5:0.0", "x:5:0.0", "0:5:0.1", "0:5:0.0", "0:5:z.0"});
    std::vector<std::string> refused;
    DuplicateMarking how;
    how.on_refused = [&refused](const LineToken &t) { refused.push_back(t.text); };
    EXPECT_EQ(mark(table, how), 0);
    EXPECT_EQ(marks(table), "---DF-");
    EXPECT_EQ(refused, (std::vector<std::string>{"0:5:0", "x:5:0.0", "0:5:z.0"}));
    EXPECT_EQ(said.log_text().find("callee"), std::string::npos);
}
