// Making and removing directory trees, on the awkward trees a flash file
// system collects over years.
#include "daemon/base/fs.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
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
	void make_file(const char *relative, const char *text = "") const
	{
		FILE *f = fopen(at(relative).c_str(), "w");
		ASSERT_NE(f, nullptr);
		fputs(text, f);
		fclose(f);
	}
	std::string read(const char *relative) const
	{
		FILE *f = fopen(at(relative).c_str(), "r");
		if (f == nullptr)
			return "(absent)";
		char buf[256] = {};
		size_t n = fread(buf, 1, sizeof buf - 1, f);
		fclose(f);
		return std::string(buf, n);
	}
	replace_status replace(const char *text)
	{
		return replace_file(at("tmp").c_str(), at("target").c_str(),
				    [text](out_file *o) { out_str(o, text); });
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

// Something planted at the temporary name is neither followed nor written:
// a link or FIFO is replaced by a file of our own, a directory means no
// temporary file this time.
TEST_F(FsTree, WhatStandsAtTheTemporaryNameIsNeverWritten)
{
	struct {
		const char *what;
		void (*plant)(const FsTree &t);
		replace_status status;
		const char *target;
	} cases[] = {
		{"symbolic link", [](const FsTree &t) { (void)!symlink(t.at("victim").c_str(), t.at("tmp").c_str()); },
		 REPLACE_DONE, "new\n"},
		{"dangling symbolic link", [](const FsTree &t) { (void)!symlink(t.at("nowhere").c_str(), t.at("tmp").c_str()); },
		 REPLACE_DONE, "new\n"},
		{"hard link", [](const FsTree &t) { (void)!link(t.at("victim").c_str(), t.at("tmp").c_str()); },
		 REPLACE_DONE, "new\n"},
		{"FIFO", [](const FsTree &t) { (void)!mkfifo(t.at("tmp").c_str(), 0644); }, REPLACE_DONE, "new\n"},
		{"directory", [](const FsTree &t) { (void)!mkdir(t.at("tmp").c_str(), 0755); },
		 REPLACE_NO_TEMPORARY, "old\n"},
	};
	for (const auto &c : cases) {
		SCOPED_TRACE(c.what);
		make_file("victim", "victim\n");
		make_file("target", "old\n");
		c.plant(*this);
		EXPECT_EQ(replace("new\n"), c.status);
		EXPECT_EQ(read("target"), c.target);
		EXPECT_EQ(read("victim"), "victim\n");
		EXPECT_FALSE(exists(at("nowhere")));
		ASSERT_EQ(recursive_remove(at("tmp").c_str()), c.status == REPLACE_DONE ? -1 : 0);
	}
}

// A file size limit fails writes as a full disk does.
TEST_F(FsTree, AFailedWriteKeepsTheTargetAsItWas)
{
	make_file("target", "old\n");
	struct rlimit saved;
	ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
	struct rlimit tight = {4096, saved.rlim_max};
	void (*handler)(int) = signal(SIGXFSZ, SIG_IGN);
	ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
	std::string big(8192, 'x');
	replace_status status = replace(big.c_str());
	ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
	signal(SIGXFSZ, handler);
	EXPECT_EQ(status, REPLACE_FAILED);
	EXPECT_EQ(read("target"), "old\n");
	EXPECT_FALSE(exists(at("tmp")));
}

TEST_F(FsTree, AFillThatKeepsNothingLeavesTheTarget)
{
	make_file("target", "old\n");
	auto nothing = [](out_file *o) {
		out_str(o, "partial");
		return false;
	};
	EXPECT_EQ(replace_file(at("tmp").c_str(), at("target").c_str(), nothing), REPLACE_DONE);
	EXPECT_EQ(read("target"), "old\n");
	EXPECT_FALSE(exists(at("tmp")));
}

} // namespace
