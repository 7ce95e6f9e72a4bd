// The operation log: record limits, levels, errno, refusal of links, and
// the rotation of generations.
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/core/user_log.h"
#include "temp_dir.h"

namespace {

class LogDir : public TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        path_ = dir_ + "/user.log";
    }
    bool exists(const std::string &p) const { return access(p.c_str(), F_OK) == 0; }

    std::string path_;
};

TEST_F(LogDir, RecordShapeLevelsAndLimits)
{
    uint32_t code = 0;
    UserLog *log = user_log_open("tool", path_.c_str(), 0x100000, 4, &code);
    ASSERT_NE(log, nullptr);
    struct stat st;
    ASSERT_EQ(stat(path_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u & ~static_cast<unsigned>(umask(022)));

    errno = 1234;
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 6, nullptr, "start.\n"), 0);
    EXPECT_EQ(errno, 1234);
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 9, nullptr, "odd level\n"), 0);
    EXPECT_EQ(user_log_write(log, 2, 3, nullptr, "not for the file\n"), 0);
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 3, &code, "%s", ""), -1);
    EXPECT_EQ(code, 0xdu);
    std::string longest(4095, 'x'), too_long(4096, 'y');
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 3, nullptr, "%s", longest.c_str()), 0);
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 3, &code, "%s", too_long.c_str()), -1);
    EXPECT_EQ(code, 0xdu);
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(user_log_write(nullptr, USER_LOG_FILE, 3, &code, "x\n"), -1);
    EXPECT_EQ(code, 0xcu);
    user_log_close(log);

    std::string text = read(path_);
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    std::string prefix = std::string(" ") + host + " tool[" + std::to_string(getpid()) + "]: ";
    std::istringstream lines(text);
    std::string l1, l2, l3;
    std::getline(lines, l1);
    std::getline(lines, l2);
    std::getline(lines, l3, '\0');
    EXPECT_NE(l1.find(prefix + "INFO: <"), std::string::npos) << l1;
    EXPECT_EQ(l1.substr(l1.size() - 7), ">start.");
    EXPECT_NE(l2.find(prefix + "UNKNOWN: <"), std::string::npos) << l2;
    EXPECT_EQ(l3.substr(l3.size() - 4095), longest);  // no line end of its own
    EXPECT_EQ(text.find("not for the file"), std::string::npos);
    EXPECT_EQ(text.find('y'), std::string::npos);
}

TEST_F(LogDir, OpenRefusesWhatIsNotAPlainFile)
{
    uint32_t code = 0;
    write(dir_ + "/real", "");
    ASSERT_EQ(symlink((dir_ + "/real").c_str(), path_.c_str()), 0);
    EXPECT_EQ(user_log_open("tool", path_.c_str(), 100, 4, &code), nullptr);
    EXPECT_EQ(code, 0x407u);
    EXPECT_EQ(user_log_open("tool", (dir_ + "/missing/user.log").c_str(), 100, 4, &code), nullptr);
    EXPECT_EQ(code, 0x408u);
    UserLog *none = user_log_open("tool", nullptr, 100, 4, &code);
    ASSERT_NE(none, nullptr);  // a handle without a file writes nothing
    EXPECT_EQ(user_log_write(none, USER_LOG_FILE, 6, nullptr, "x\n"), 0);
    user_log_close(none);
}

TEST_F(LogDir, RecordThatFindsTheFileFullEndsItsGeneration)
{
    write(path_, std::string(100, 'a'));
    write(path_ + ".1", "g1");
    write(path_ + ".2", "g2");
    write(path_ + ".4", "g4");
    UserLog *log = user_log_open("tool", path_.c_str(), 100, 4, nullptr);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 6, nullptr, "last of old\n"), 0);
    EXPECT_EQ(user_log_write(log, USER_LOG_FILE, 6, nullptr, "first of new\n"), 0);
    user_log_close(log);

    std::string g1 = read(path_ + ".1");
    EXPECT_EQ(g1.substr(0, 100), std::string(100, 'a'));
    EXPECT_NE(g1.find("last of old"), std::string::npos);
    EXPECT_EQ(read(path_ + ".2"), "g1");
    EXPECT_EQ(read(path_ + ".3"), "g2");
    EXPECT_FALSE(exists(path_ + ".4"));  // the old .3 was missing: nothing moved up
    EXPECT_FALSE(exists(path_ + ".5"));
    std::string current = read(path_);
    EXPECT_NE(current.find("first of new"), std::string::npos);
    EXPECT_EQ(current.find("last of old"), std::string::npos);
}

TEST_F(LogDir, RotateGenerations)
{
    write(path_, "0");
    write(path_ + ".2", "2");
    char buf[256];
    uint32_t code = 0;
    errno = 77;
    ASSERT_EQ(rotate_generations(4, buf, sizeof buf, path_.c_str(), &code), 0);
    EXPECT_EQ(errno, 77);
    EXPECT_FALSE(exists(path_));
    EXPECT_EQ(read(path_ + ".1"), "0");
    EXPECT_EQ(read(path_ + ".3"), "2");
    EXPECT_FALSE(exists(path_ + ".2"));

    // A buffer too small for the names fails before anything moves.
    char small[8];
    EXPECT_EQ(rotate_generations(4, small, sizeof small, path_.c_str(), &code), -1);
    EXPECT_EQ(code, 2u);
    EXPECT_TRUE(exists(path_ + ".1"));
    write(path_, "new");
    EXPECT_EQ(rotate_generations(0, buf, sizeof buf, path_.c_str(), &code), 0);
    EXPECT_FALSE(exists(path_));
    EXPECT_TRUE(exists(path_ + ".1"));
}

} // namespace
