// The table round trip: load, edit, write through the temporary file with
// backups. Works on files in a private directory.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "table/hba_addr_conf.h"
#include "table/label_edit.h"
#include "table/table_writer.h"
#include "temp_dir.h"

namespace {

class TableFile : public TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        path_ = dir_ + "/hba_addr.conf";
    }

    void load(const std::string &text)
    {
        write(path_, text);
        LineReaderStatus status = 0;
        ASSERT_EQ(load_hba_addr_conf(path_.c_str(), 1000, &status), 0) << std::hex << status;
    }
    std::string written()
    {
        EXPECT_EQ(write_hba_addr_conf(path_.c_str()), 0);
        return read(path_);
    }
    std::string path_;
};

TEST_F(TableFile, WriterNormalisesBlanksAndKeepsCommentsAndLines)
{
    load("a,x  0000:03:00.0   #c  \n\n\t# note\t here\nb,y\t0:1:2.3");
    EXPECT_EQ(written(), "a,x 0000:03:00.0 #c  \n\n# note\t here\nb,y 0:1:2.3\n");
    struct stat st;
    ASSERT_EQ(stat(path_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);  // the temporary file's mode
}

TEST_F(TableFile, ElevenWritesKeepTenBackups)
{
    load("v,0 0:0:0.0\n");
    for (int i = 1; i <= 11; i++) {
        ASSERT_EQ(parse_hba_addr_conf_change("v", "v"), 1);
        hba_addr_table.front().text = "v," + std::to_string(i);
        ASSERT_EQ(write_hba_addr_conf(path_.c_str()), 0);
    }
    EXPECT_EQ(read(path_), "v,11 0:0:0.0\n");
    for (int k = 1; k <= 10; k++)
        EXPECT_EQ(read(path_ + "." + std::to_string(k)), "v," + std::to_string(11 - k) + " 0:0:0.0\n");
    EXPECT_NE(access((path_ + ".11").c_str(), F_OK), 0);
    // No temporary file is left behind.
    EXPECT_EQ(system(("test $(ls " + dir_ + " | wc -l) -eq 11").c_str()), 0);
}

TEST_F(TableFile, FailedWriteChangesNothing)
{
    load("a,x 0:0:0.0\n");
    std::string missing = dir_ + "/no/such/dir/hba_addr.conf";
    testing::internal::CaptureStderr();
    EXPECT_EQ(write_hba_addr_conf(missing.c_str()), -1);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "ERROR: " + missing + "XXXXXX: an input/output error has occurred(2:f39).\n");
    EXPECT_EQ(read(path_), "a,x 0:0:0.0\n");
    EXPECT_EQ(hba_addr_table.size(), 3u);
}

// Found by fuzzing: a word that begins with a NUL reaches the check empty.
// Accepted, it was written back as nothing, and the next load failed.
TEST_F(TableFile, WordBeginningWithNulIsRefused)
{
    static const char text[] = "lab,/dev/sdb \0:0:0.0\n";
    write(path_, std::string(text, sizeof text - 1));
    LineReaderStatus status = 0;
    EXPECT_EQ(load_hba_addr_conf(path_.c_str(), 1000, &status), -1);
    EXPECT_EQ(status, 12u);  // the end callback refused the table
}

TEST_F(TableFile, DeleteRemovesEveryLineOfTheLabelWithItsComment)
{
    load("# head\nA,/dev/sdb 0:5:0.0 #first\n\nB,/dev/sdc 0:6:0.0\nA,/dev/sdb 0:5:0.1\n"
         "nocomma 0:7:0.0\nA, 0:8:0.0 # last\n");
    EXPECT_EQ(parse_hba_addr_conf_delete("a"), 0);    // case-sensitive
    EXPECT_EQ(parse_hba_addr_conf_delete("A,"), 0);   // the label never holds a comma
    EXPECT_EQ(parse_hba_addr_conf_delete("A"), 3);
    EXPECT_EQ(written(), "# head\n\nB,/dev/sdc 0:6:0.0\nnocomma 0:7:0.0\n");
    EXPECT_EQ(parse_hba_addr_conf_delete("A"), 0);
}

TEST_F(TableFile, ChangeRenamesEveryEntryAndKeepsTheRest)
{
    load("A,/dev/sdb 0:5:0.0\n\n#c\nB,/dev/sdc,kvpath 0:6:0.0\nA,x 0:5:0.1\n");
    EXPECT_EQ(parse_hba_addr_conf_change("A", "disk_1.2:3/x"), 2);
    EXPECT_EQ(parse_hba_addr_conf_change("B", "disk_1.2:3/x"), 1);
    EXPECT_EQ(parse_hba_addr_conf_change("nothere", "C"), 0);
    EXPECT_EQ(written(), "disk_1.2:3/x,/dev/sdb 0:5:0.0\n\n#c\ndisk_1.2:3/x,/dev/sdc,kvpath 0:6:0.0\n"
                         "disk_1.2:3/x,x 0:5:0.1\n");
    EXPECT_EQ(hba_addr_table.front().size, sizeof("disk_1.2:3/x,/dev/sdb"));
}

TEST_F(TableFile, ChangeRefusesBadLabelsAndLinesWithoutComma)
{
    load("A,/dev/sdb 0:5:0.0\n");
    const std::string syntax = "ERROR: invalid character used in NEW-LABEL.\n"
                               "ERROR:   the first character  is   a-z  A-Z  0-9  /\n"
                               "ERROR:   the other characters are  a-z  A-Z  0-9  /  -  _  .  :\n";
    for (const char *bad : {":disk", "disk#1", "disk,1", "", "d\xc3\xa9"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(parse_hba_addr_conf_change("A", bad), -1) << bad;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), syntax) << bad;
    }
    EXPECT_EQ(parse_hba_addr_conf_change("A", "/dev"), 1);
    load("A,/dev/sdb 0:5:0.0\nhand-written 0:6:0.0\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(parse_hba_addr_conf_change("A", "B"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
