// Syncing the directory that holds a path, whatever shape the path has.
#include <cerrno>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "lib/sync_directory.h"
#include "temp_dir.h"

namespace {

class LibSyncDirectory : public TempDirTest {};

TEST_F(LibSyncDirectory, SyncsTheParentOfAbsoluteRelativeAndRootPaths)
{
    errno = EDOM;
    EXPECT_EQ(sync_parent_directory((dir_ + "/table.conf").c_str()), 0);
    EXPECT_EQ(errno, EDOM);  // unchanged on success
    EXPECT_EQ(sync_parent_directory("/table.conf"), 0);

    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(dir_.c_str()), 0);
    int bare = sync_parent_directory("table.conf");  // the current directory
    int nested = sync_parent_directory("./table.conf");
    ASSERT_EQ(chdir(cwd), 0);
    EXPECT_EQ(bare, 0);
    EXPECT_EQ(nested, 0);
}

TEST_F(LibSyncDirectory, FailsWithTheOpensErrorWhenTheDirectoryIsMissingOrNone)
{
    EXPECT_EQ(sync_parent_directory((dir_ + "/missing/table.conf").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    write(dir_ + "/file", "x");
    EXPECT_EQ(sync_parent_directory((dir_ + "/file/table.conf").c_str()), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(sync_parent_directory((std::string(5000, 'd') + "/t").c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

} // namespace
