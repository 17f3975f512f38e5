// Making and removing directory trees, on the awkward trees a flash file
// system collects over years.
#include "daemon/base/fs.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct FsTree : testing::Test {
	std::string root;

	void SetUp() override
	{
		std::string pattern = testing::TempDir() + "tally_fs_test.XXXXXX";
		ASSERT_NE(mkdtemp(pattern.data()), nullptr);
		root = pattern;
	}
	void TearDown() override
	{
		std::string command = "rm -rf '" + root + "'";
		ASSERT_EQ(system(command.c_str()), 0);
	}
	std::string at(const char *relative) const { return root + "/" + relative; }
	void make_file(const char *relative) const
	{
		FILE *f = fopen(at(relative).c_str(), "w");
		ASSERT_NE(f, nullptr);
		fclose(f);
	}
};

bool
is_dir(const std::string &path)
{
	struct stat st;
	return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool
exists(const std::string &path)
{
	struct stat st;
	return lstat(path.c_str(), &st) == 0;
}

TEST_F(FsTree, MkdirMakesEveryMissingParentOfARelativePath)
{
	char cwd[4096];
	ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
	ASSERT_EQ(chdir(root.c_str()), 0);
	int r = recursive_mkdir("a/b/c");
	ASSERT_EQ(chdir(cwd), 0);
	EXPECT_EQ(r, 0);
	EXPECT_TRUE(is_dir(at("a/b/c")));
}

TEST_F(FsTree, MkdirResults)
{
	make_file("file");
	ASSERT_EQ(mkdir(at("dir").c_str(), 0755), 0);
	struct {
		std::string path;
		int result;
		const char *made; // directory expected afterwards, or null
		const char *absent;
	} cases[] = {
		{at("dir"), 0, "dir", nullptr},
		{at("file"), 1, nullptr, nullptr},
		{at("file/x/y"), 1, nullptr, "file/x"},
		{"/" + at("double/slash"), 0, "double/slash", nullptr},
		{at("dir/new/"), 0, "dir/new", nullptr},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.path);
		EXPECT_EQ(recursive_mkdir(c.path.c_str()), c.result);
		if (c.made) {
			EXPECT_TRUE(is_dir(at(c.made)));
		}
		if (c.absent) {
			EXPECT_FALSE(exists(at(c.absent)));
		}
	}
	EXPECT_FALSE(is_dir(at("file")));
}

TEST_F(FsTree, RemoveTakesTheLinkNotTheDirectoryItPointsTo)
{
	ASSERT_EQ(recursive_mkdir(at("keep/inner").c_str()), 0);
	make_file("keep/inner/data");
	ASSERT_EQ(recursive_mkdir(at("tree/sub").c_str()), 0);
	make_file("tree/sub/file");
	ASSERT_EQ(symlink(at("keep").c_str(), at("tree/link").c_str()), 0);

	EXPECT_EQ(recursive_remove(at("tree").c_str()), 0);
	EXPECT_FALSE(exists(at("tree")));
	EXPECT_TRUE(exists(at("keep/inner/data")));
}

TEST_F(FsTree, RemoveOfAFileAndOfNothing)
{
	make_file("lone");
	EXPECT_EQ(recursive_remove(at("lone").c_str()), 0);
	EXPECT_FALSE(exists(at("lone")));
	EXPECT_EQ(recursive_remove(at("missing").c_str()), -1);
}

} // namespace
