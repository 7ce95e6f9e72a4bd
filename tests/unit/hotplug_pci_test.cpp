// Configuration access on a function whose config file is an ordinary file:
// byte order, alignment, short transfers, the one-descriptor cache, and the
// capability walk.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "hotplug/pci_access.h"
#include "hotplug/shpc.h"
#include "hotplug_capture.h"

namespace {

class HotplugPci : public testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/slotag-config-XXXXXX";
        int fd = mkstemp(tmpl);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = tmpl;
        space_.assign(256, 0);
        snap_.functions.emplace_back();
        f_ = &snap_.functions.back();
        f_->snap = &snap_;
        f_->config_path = path_;
        f_->bus = 0x12;
        f_->device = 3;
        f_->function = 1;
    }
    void TearDown() override { unlink(path_.c_str()); }

    void save()
    {
        int fd = open(path_.c_str(), O_WRONLY | O_TRUNC);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, space_.data(), space_.size()), static_cast<ssize_t>(space_.size()));
        close(fd);
    }

    // A capability list: status bit, head pointer, and (offset, id, next).
    void capabilities(uint8_t head, std::vector<std::array<uint8_t, 3>> entries)
    {
        space_[0x06] = 0x10;
        space_[0x34] = head;
        for (auto &e : entries) {
            space_[e[0]] = e[1];
            space_[e[0] + 1] = e[2];
        }
        save();
    }

    std::string path_;
    std::vector<uint8_t> space_;
    PciSnap snap_;
    PciFunction *f_ = nullptr;
};

TEST_F(HotplugPci, ValuesAreLittleEndian)
{
    for (int i = 0; i < 8; i++)
        space_[0x40 + i] = static_cast<uint8_t>(0x11 * (i + 1));
    save();
    uint8_t b = 0;
    uint16_t w = 0;
    uint32_t d = 0;
    EXPECT_TRUE(pci_read8(*f_, &b, 0x41, nullptr));
    EXPECT_EQ(b, 0x22);
    EXPECT_TRUE(pci_read16(*f_, &w, 0x42, nullptr));
    EXPECT_EQ(w, 0x4433);
    EXPECT_TRUE(pci_read32(*f_, &d, 0x44, nullptr));
    EXPECT_EQ(d, 0x88776655u);

    EXPECT_TRUE(pci_write32(*f_, 0xa1b2c3d4, 0x48, nullptr));
    EXPECT_TRUE(pci_write16(*f_, 0xe5f6, 0x4c, nullptr));
    EXPECT_TRUE(pci_write8(*f_, 0x77, 0x4f, nullptr));
    EXPECT_TRUE(pci_read32(*f_, &d, 0x48, nullptr));
    EXPECT_EQ(d, 0xa1b2c3d4u);
    EXPECT_TRUE(pci_read32(*f_, &d, 0x4c, nullptr));
    EXPECT_EQ(d, 0x7700e5f6u);
}

TEST_F(HotplugPci, FailuresCarryReasonAndAccessor)
{
    save();
    using Access = bool (*)(const PciFunction &, int, uint32_t *);
    Access read8 = [](const PciFunction &f, int o, uint32_t *c) {
        uint8_t v;
        return pci_read8(f, &v, o, c);
    };
    Access read16 = [](const PciFunction &f, int o, uint32_t *c) {
        uint16_t v;
        return pci_read16(f, &v, o, c);
    };
    Access read32 = [](const PciFunction &f, int o, uint32_t *c) {
        uint32_t v;
        return pci_read32(f, &v, o, c);
    };
    Access write16 = [](const PciFunction &f, int o, uint32_t *c) { return pci_write16(f, 0, o, c); };
    Access write32 = [](const PciFunction &f, int o, uint32_t *c) { return pci_write32(f, 0, o, c); };
    struct Case {
        Access access;
        int offset;
        uint32_t code;
        int err;
    } cases[] = {
        {read16, 1, 0x201, EINVAL},
        {read32, 2, 0x401, EINVAL},
        {write16, 3, 0x2001, EINVAL},
        {write32, 6, 0x4001, EINVAL},
        // Past the end of a 256-byte space: nothing transferred.
        {read32, 0x100, 0x406, ENXIO},
        {read8, 0x100, 0x106, ENXIO},
    };
    for (const Case &c : cases) {
        uint32_t code = 0;
        errno = 0;
        EXPECT_FALSE(c.access(*f_, c.offset, &code)) << std::hex << c.code;
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(errno, c.err) << std::hex << c.code;
    }
    uint32_t reason = 0;
    uint8_t buf[1];
    EXPECT_FALSE(pci_config_access(*f_, buf, 1, 0, 2, &reason));
    EXPECT_EQ(reason, 2u);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(HotplugPci, AMisalignedAccessOpensNothing)
{
    unlink(path_.c_str());  // an open would fail with reason 3
    uint16_t w = 0x5555;
    uint32_t code = 0;
    EXPECT_FALSE(pci_read16(*f_, &w, 0x07, &code));
    EXPECT_EQ(code, 0x201u);
    EXPECT_EQ(w, 0x5555);  // nothing stored on failure
    EXPECT_FALSE(pci_read16(*f_, &w, 0x06, &code));
    EXPECT_EQ(code, 0x203u);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(snap_.cached_function, nullptr);  // a failed open caches nothing
}

TEST_F(HotplugPci, OneOpenPerFunctionAndDirection)
{
    space_[0] = 0xab;
    save();
    uint8_t b = 0;
    uint32_t code = 0;
    ASSERT_TRUE(pci_read8(*f_, &b, 0, &code));
    int fd = snap_.cached_fd.get();
    // With the file gone only the cached descriptor can still read it.
    unlink(path_.c_str());
    EXPECT_TRUE(pci_read8(*f_, &b, 0, &code));
    EXPECT_EQ(b, 0xab);
    EXPECT_EQ(snap_.cached_fd.get(), fd);
    // A write needs its own open.
    EXPECT_FALSE(pci_write8(*f_, 1, 0, &code));
    EXPECT_EQ(code, 0x1003u);
    EXPECT_EQ(errno, ENOENT);
    // Releasing the cached function closes its descriptor.
    EXPECT_EQ(snap_.cached_function, f_);
    pci_function_free(snap_.functions, snap_.functions.begin());
    EXPECT_EQ(snap_.cached_function, nullptr);
    EXPECT_EQ(snap_.cached_direction, PCI_DIR_NONE);
    EXPECT_FALSE(snap_.cached_fd);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(HotplugPci, CapabilityWalk)
{
    capabilities(0x40, {{0x40, 0x01, 0x60}, {0x60, 0x0c, 0x50}, {0x50, 0x10, 0x00}});
    Said said;
    EXPECT_EQ(find_capability(*f_, 0x01), 0x40);
    EXPECT_EQ(find_capability(*f_, 0x0c), 0x60);
    EXPECT_EQ(find_capability(*f_, 0x10), 0x50);
    EXPECT_EQ(find_capability(*f_, 0x05), 0);
    space_[0x06] = 0;  // no capability list at all
    save();
    EXPECT_EQ(find_capability(*f_, 0x01), 0);
    EXPECT_EQ(said.stderr_text(), "");
}

TEST_F(HotplugPci, ACircularCapabilityListEnds)
{
    Said said;
    capabilities(0x40, {{0x40, 0x01, 0x48}, {0x48, 0x05, 0x40}});
    EXPECT_EQ(find_capability(*f_, 0x01), 0x40);
    EXPECT_EQ(find_capability(*f_, 0x10), 0);
    capabilities(0x80, {{0x80, 0x09, 0x80}});  // points at itself
    EXPECT_EQ(find_capability(*f_, 0x10), 0);
    EXPECT_EQ(said.stderr_text(), "");
}

TEST_F(HotplugPci, UnreadableCapabilityCountsAsAbsent)
{
    // A 64-byte space whose list points past its end.
    space_.assign(64, 0);
    space_[0x06] = 0x10;
    space_[0x34] = 0x40;
    save();
    Said said;
    EXPECT_EQ(find_capability(*f_, 0x01), 0);
    EXPECT_EQ(said.stderr_text(), "ERROR: there was a fatal error(a26).\n");
    EXPECT_EQ(said.log_text(), "ERR: there was a fatal error(a26).\nERR: 0000:12:03.1(106)\n");
}

} // namespace
