// Configuration access on a function whose config file is an ordinary
// file: the one cached descriptor per function and direction.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "hotplug/pci_access.h"

namespace {

class HotplugPci : public testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/slotag-config-XXXXXX";
        int fd = mkstemp(tmpl);
        ASSERT_GE(fd, 0);
        uint8_t space[256] = {0xab, 0xcd, 0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc};
        ASSERT_EQ(write(fd, space, sizeof space), 256);
        close(fd);
        snap_.functions.emplace_back();
        f_ = &snap_.functions.back();
        f_->snap = &snap_;
        f_->config_path = path_ = tmpl;
    }
    void TearDown() override { unlink(path_.c_str()); }

    std::string path_;
    PciSnap snap_;
    PciFunction *f_ = nullptr;
};

TEST_F(HotplugPci, OneOpenPerFunctionAndDirection)
{
    uint8_t b = 0;
    uint16_t w = 0x5555;
    uint32_t code = 0;
    unlink(path_.c_str());
    EXPECT_FALSE(pci_read16(*f_, &w, 1, &code));  // misaligned: refused before any open
    EXPECT_EQ(code, 0x201u);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(pci_read16(*f_, &w, 0, &code));  // a failed open caches nothing
    EXPECT_EQ(code, 0x203u);
    EXPECT_EQ(w, 0x5555);
    EXPECT_EQ(snap_.cached_function, nullptr);
    SetUp();  // the file again, under a new name
    ASSERT_TRUE(pci_read8(*f_, &b, 0, &code));
    int fd = snap_.cached_fd.get();
    // With the file gone only the cached descriptor can still read it...
    unlink(path_.c_str());
    EXPECT_TRUE(pci_read8(*f_, &b, 1, &code));
    EXPECT_EQ(b, 0xcd);
    // ...and a write needs an open of its own.
    EXPECT_FALSE(pci_write8(*f_, 1, 0, &code));
    EXPECT_EQ(code, 0x1003u);
    EXPECT_EQ(errno, ENOENT);
    // Releasing the cached function closes its descriptor.
    pci_function_free(snap_.functions, std::prev(snap_.functions.end()));
    EXPECT_EQ(snap_.cached_function, nullptr);
    EXPECT_EQ(snap_.cached_direction, PCI_DIR_NONE);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

} // namespace
