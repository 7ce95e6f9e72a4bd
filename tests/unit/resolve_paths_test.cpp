// Path handling of device resolution: components, volume paths, canonical
// paths, path buffers, and the memory below 4 GiB for the relayed request.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/low_memory.h"
#include "resolve/path_buffer.h"
#include "resolve/path_name.h"
#include "resolve/real_path.h"
#include "resolve/vds.h"

namespace {

TEST(ResolvePathName, BehavesAsPosixDirnameAndBasename)
{
    struct Case {
        const char *path, *dir, *base;
    };
    const Case cases[] = {
        {"/dev/vdsdev/c1/dsk/v1", "/dev/vdsdev/c1/dsk", "v1"},
        {"/dev/sdb/", "/dev", "sdb"},
        {"/dev//sdb", "/dev", "sdb"},
        {"/sdb", "/", "sdb"},
        {"sdb", ".", "sdb"},
        {"/", "/", "/"},
        {"//", "/", "/"},
        {"", ".", "."},
        {"../../devices/pci0000:00/0000:05:00.0/host3", "../../devices/pci0000:00/0000:05:00.0",
         "host3"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(path_dirname(c.path), c.dir) << c.path;
        EXPECT_EQ(path_basename(c.path), c.base) << c.path;
    }
}

TEST(ResolvePathName, VolumePathGivesClassAndVolume)
{
    std::unique_ptr<char[]> vds_class, volume;
    ASSERT_EQ(split_vds_path("/dev/vdsdev/class1/dsk/vol1", vds_class, volume), 0);
    EXPECT_STREQ(vds_class.get(), "class1");
    EXPECT_STREQ(volume.get(), "vol1");
    ASSERT_EQ(split_vds_path("vol", vds_class, volume), 0);
    EXPECT_STREQ(vds_class.get(), ".");
    EXPECT_STREQ(volume.get(), "vol");
}

class ResolveRealPath : public testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/slotag-paths-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        // The canonical form of the directory itself (/tmp may be a link).
        char *real = realpath(tmpl, nullptr);
        ASSERT_NE(real, nullptr);
        dir_ = real;
        free(real);
    }
    void TearDown() override { ASSERT_EQ(system(("rm -rf " + dir_).c_str()), 0); }
    std::string dir_;
};

TEST_F(ResolveRealPath, FollowsLinksAndStatsTheTarget)
{
    ASSERT_EQ(symlink("/dev/null", (dir_ + "/null-link").c_str()), 0);
    ASSERT_EQ(mkdir((dir_ + "/by-id").c_str(), 0700), 0);
    ASSERT_EQ(symlink("../null-link", (dir_ + "/by-id/X").c_str()), 0);
    struct stat st;
    auto real = get_real_path((dir_ + "/by-id/./X").c_str(), &st);
    ASSERT_NE(real, nullptr);
    EXPECT_STREQ(real.get(), "/dev/null");
    EXPECT_TRUE(S_ISCHR(st.st_mode));
    EXPECT_EQ(st.st_rdev, makedev(1, 3));

    auto dir = get_real_path((dir_ + "/by-id/..").c_str(), nullptr);
    ASSERT_NE(dir, nullptr);
    EXPECT_EQ(dir.get(), dir_);
}

TEST_F(ResolveRealPath, MissingOrDanglingPathsGiveNothing)
{
    struct stat st;
    EXPECT_EQ(get_real_path((dir_ + "/absent").c_str(), &st), nullptr);
    ASSERT_EQ(symlink("absent", (dir_ + "/dangling").c_str()), 0);
    EXPECT_EQ(get_real_path((dir_ + "/dangling").c_str(), &st), nullptr);
}

TEST(ResolvePathBuffer, HoldsAnyPathAndRefusesWhatDoesNotFit)
{
    PathBuffer buffer = alloc_path_buffer();
    ASSERT_TRUE(buffer);
    EXPECT_GE(buffer.size, 4096u);
    EXPECT_GE(buffer.size, static_cast<size_t>(sysconf(_SC_PAGESIZE)));

    const char *node = build_absolute_dev_path("sda", buffer);
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node, "/dev/sda");
    std::string longest(buffer.size - 6, 'x');  // "/dev/" and the NUL fill it
    EXPECT_NE(build_absolute_dev_path(longest.c_str(), buffer), nullptr);
    longest += 'x';
    EXPECT_EQ(build_absolute_dev_path(longest.c_str(), buffer), nullptr);

    EXPECT_FALSE(buffer.read_link("/nonexistent/link"));
    ASSERT_TRUE(buffer.read_link("/proc/self/cwd"));
    char *cwd = getcwd(nullptr, 0);
    EXPECT_STREQ(buffer.get(), cwd);
    free(cwd);
}

TEST(ResolveLowMemory, IsZeroFilledAndAddressableIn32Bits)
{
    constexpr size_t size = 36;
    LowMemory area = LowMemory::allocate(size);
    ASSERT_TRUE(area);
    auto *bytes = static_cast<const unsigned char *>(area.get());
    for (size_t i = 0; i < size; i++)
        ASSERT_EQ(bytes[i], 0) << i;
    const uint64_t end = reinterpret_cast<uintptr_t>(bytes) + size;
    EXPECT_LE(end, uint64_t{1} << 32);
    EXPECT_EQ(uintptr_t{low_address(bytes + 20)}, reinterpret_cast<uintptr_t>(bytes + 20));

    // The search where no flag asks for low memory: a taken candidate is
    // stepped over, and every answer is the address asked for.
    uint64_t cursor = uint64_t{1} << 30;
    void *first = map_below_4gib(size, &cursor);
    ASSERT_NE(first, nullptr);
    uint64_t again = reinterpret_cast<uintptr_t>(first);
    void *second = map_below_4gib(size, &again);
    ASSERT_NE(second, nullptr);
    EXPECT_GT(reinterpret_cast<uintptr_t>(second), reinterpret_cast<uintptr_t>(first));
    EXPECT_LE(again, uint64_t{1} << 32);
    EXPECT_EQ(static_cast<const unsigned char *>(second)[size - 1], 0);
    uint64_t past_end = (uint64_t{1} << 32) - 1;
    EXPECT_EQ(map_below_4gib(size, &past_end), nullptr);
    munmap(first, size);
    munmap(second, size);
}

} // namespace
