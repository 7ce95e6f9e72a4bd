// Telling device kinds apart: the partition cut, the major number of a
// device number, and the volume manager's majors read from /proc/devices.
#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "resolve/add.h"
#include "resolve/vds_major.h"

namespace {

std::string cut(std::string path)
{
    cut_partition(path.data());
    return path.c_str();
}

TEST(ResolvePartitionCut, EndsThePathBeforeItsFirstDigit)
{
    EXPECT_EQ(cut("/dev/sdb1"), "/dev/sdb");
    EXPECT_EQ(cut("/dev/sdab12"), "/dev/sdab");
    EXPECT_EQ(cut("/dev/sdc"), "/dev/sdc");
    EXPECT_EQ(cut("/dev/cciss/c0d0p1"), "/dev/cciss/c");
    EXPECT_EQ(cut("/dev/vdsdev/class1/dsk/vol1"), "/dev/vdsdev/class1/dsk/vol1");
    EXPECT_EQ(cut("/dev/mapper/vdsdev2"), "/dev/mapper/vdsdev2");
}

TEST(ResolveDeviceMajor, TakesBothPartsOfTheMajorAndNoMinorBits)
{
    EXPECT_EQ(device_major(0x811), 8u);  // sdb1
    EXPECT_EQ(device_major(makedev(0x123, 0xff)), 0x123u);
    // A major above 0xfff keeps its high bits above bit 43; a minor above
    // 0xff has bits 20 to 31 and 44 up, none of which may leak into it.
    EXPECT_EQ(device_major(makedev(0x12345, 0xabcde)), 0x12345u);
    EXPECT_EQ(device_major(makedev(0, 0xfffff)), 0u);
    EXPECT_EQ(device_major(0x0001200000034500ull), 0x12345u);
}

class ResolveProcDevices : public testing::Test {
protected:
    void SetUp() override
    {
        vds_major_table = {};
        char tmpl[] = "/tmp/slotag-devices-XXXXXX";
        int fd = mkstemp(tmpl);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = tmpl;
    }
    void TearDown() override { unlink(path_.c_str()); }

    void read(const std::string &text)
    {
        std::ofstream(path_, std::ios::binary) << text;
        LineReaderStatus status = 0;
        ASSERT_EQ(read_vds_majors(path_.c_str(), &status), 0) << std::hex << status;
    }
    static std::vector<uint32_t> chars()
    {
        const auto &t = vds_major_table;
        return {t.char_majors, t.char_majors + t.char_count};
    }
    static std::vector<uint32_t> blocks()
    {
        const auto &t = vds_major_table;
        return {t.block_majors, t.block_majors + t.block_count};
    }

    std::string path_;
};

using Majors = std::vector<uint32_t>;

TEST_F(ResolveProcDevices, EachSectionFillsItsOwnList)
{
    read("Character devices:\n  1 mem\n250 vdsdev\n\nBlock devices:\n  8 sd\n251 vdsdev\n");
    EXPECT_EQ(chars(), Majors{250});
    EXPECT_EQ(blocks(), Majors{251});
    // Either list makes a volume-manager device, whatever its type.
    EXPECT_EQ(is_vds_major(250), 1);
    EXPECT_EQ(is_vds_major(251), 1);
    EXPECT_EQ(is_vds_major(8), 0);
    EXPECT_EQ(is_vds_major(0), 0);
}

TEST_F(ResolveProcDevices, OnlyAnExactSecondWordCountsAndNumbersTakeAnyBase)
{
    read("Character devices:\n0x1f vdsdev\n010 vdsdev\n 12 vdsdevx\nvdsdev 13\n"
         "14 vdsdev extra\n15 x vdsdev\n#16 vdsdev\nBlock devices:\n");
    EXPECT_EQ(chars(), (Majors{0x1f, 8, 14}));
    EXPECT_TRUE(blocks().empty());
}

TEST_F(ResolveProcDevices, NothingCountsBeforeTheFirstHeaderOrWithoutTheDriver)
{
    read("7 vdsdev\nCharacter devices:\n  1 mem\nBlock devices:\n  8 sd\n");
    EXPECT_TRUE(chars().empty());
    EXPECT_TRUE(blocks().empty());
    EXPECT_EQ(is_vds_major(7), 0);
}

TEST_F(ResolveProcDevices, MajorsBeyondTheSlotsAreDropped)
{
    std::string text = "Block devices:\n";
    for (int i = 1; i <= 300; i++)
        text += std::to_string(i) + " vdsdev\n";
    read(text);
    ASSERT_EQ(vds_major_table.block_count, VDS_MAJOR_SLOTS);
    EXPECT_EQ(vds_major_table.block_majors[VDS_MAJOR_SLOTS - 1], VDS_MAJOR_SLOTS);
    EXPECT_EQ(is_vds_major(256), 1);
    EXPECT_EQ(is_vds_major(257), 0);
}

TEST_F(ResolveProcDevices, UnreadableFileFailsWithTheReaderStatus)
{
    LineReaderStatus status = 0;
    EXPECT_EQ(read_vds_majors("/nonexistent/devices", &status), -1);
    EXPECT_EQ(status, LR_OPEN);
}

} // namespace
