// A private directory for a test's files, removed with everything in it
// when the test ends.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

class TempDirTest : public testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/slotag-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override { ASSERT_EQ(system(("rm -rf " + dir_).c_str()), 0); }

    std::string read(const std::string &path) const
    {
        std::ifstream in(path, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    void write(const std::string &path, const std::string &text) const
    {
        std::ofstream(path, std::ios::binary) << text;
    }

    std::string dir_;
};
