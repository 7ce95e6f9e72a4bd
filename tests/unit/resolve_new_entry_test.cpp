// New table entries made by the resolvers: laid out like loaded lines, so
// they are written back and loaded again; refused busIDs leave no trace.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "resolve/new_entry.h"
#include "table/hba_addr_conf.h"
#include "table/table_writer.h"

namespace {

class ResolveNewEntry : public testing::Test {
protected:
    void SetUp() override
    {
        hba_addr_table.clear();
        char tmpl[] = "/tmp/slotag-entry-XXXXXX";
        int fd = mkstemp(tmpl);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = tmpl;
    }
    void TearDown() override
    {
        unlink(path_.c_str());
        hba_addr_table.clear();
    }

    void load(const std::string &text)
    {
        std::ofstream(path_, std::ios::binary) << text;
        LineReaderStatus status = 0;
        ASSERT_EQ(load_hba_addr_conf(path_.c_str(), 1000, &status), 0) << std::hex << status;
    }
    std::string written()
    {
        EXPECT_EQ(write_hba_addr_conf(path_.c_str()), 0);
        std::ifstream in(path_, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    std::string path_;
};

TEST_F(ResolveNewEntry, FirstLineOfAnEmptyTableIsLaidOutLikeALoadedOne)
{
    ASSERT_EQ(parse_hba_addr_conf_busid_add("/dev/sdb1,/dev/sdb", "0000:05:00.0", 20), 1);
    ASSERT_EQ(hba_addr_table.size(), 3u);
    struct Want {
        const char *text;
        uint32_t size, column, field, flags;
    };
    const Want want[] = {
        {"/dev/sdb1,/dev/sdb", 19, 1, 1, 0x11},
        {"0000:05:00.0", 13, 20, 2, 0x10},
        {"\n", 2, 33, 3, 0x42},
    };
    auto it = hba_addr_table.begin();
    for (const Want &w : want) {
        SCOPED_TRACE(w.text);
        EXPECT_EQ(it->text, w.text);
        EXPECT_EQ(it->size, w.size);
        EXPECT_EQ(it->line, 1u);
        EXPECT_EQ(it->column, w.column);
        EXPECT_EQ(it->field, w.field);
        EXPECT_EQ(it->flags, w.flags);
        ++it;
    }
}

TEST_F(ResolveNewEntry, LinesFollowTheLoadedTableAndSurviveARoundTrip)
{
    // The last line of the file has no newline; the entry must not join it.
    load("a,x 0000:03:00.0\n\n# kept\nb,y 0:1:2.3");
    ASSERT_EQ(parse_hba_addr_conf_busid_add("/dev/sdc,/dev/sdc", "0000:06:00.1", 20), 1);
    ASSERT_EQ(parse_hba_addr_conf_busid_add("mp,/dev/sdd,kvpath", "0000:07:00.0", 32), 1);
    EXPECT_EQ(hba_addr_table.back().line, 6u);
    const std::string text = written();
    EXPECT_EQ(text, "a,x 0000:03:00.0\n\n# kept\nb,y 0:1:2.3\n"
                    "/dev/sdc,/dev/sdc 0000:06:00.1\nmp,/dev/sdd,kvpath 0000:07:00.0\n");
    hba_addr_table.clear();
    load(text);
    EXPECT_EQ(hba_addr_table.back().line, 6u);
}

TEST_F(ResolveNewEntry, RefusedBusIdAddsNothing)
{
    load("a,x 0000:03:00.0\n");
    const size_t before = hba_addr_table.size();
    // 20 characters: no NUL within the SCSI answer's 20 bytes.
    EXPECT_EQ(parse_hba_addr_conf_busid_add("s,/dev/sda", "00000000:05:0000.000", 20), -1);
    // The same text is fine from the multipath route.
    EXPECT_EQ(parse_hba_addr_conf_busid_add("m,/dev/sda,kvpath", "00000000:05:0000.000", 32), 1);
    EXPECT_EQ(hba_addr_table.size(), before + 3);
    EXPECT_EQ(parse_hba_addr_conf_busid_add("s,/dev/sda", "0000:05:00", 20), -1);
    EXPECT_EQ(parse_hba_addr_conf_busid_add("s,/dev/sda", "host3", 32), -1);
    EXPECT_EQ(hba_addr_table.size(), before + 3);
}

} // namespace
