// Making and removing directory trees.
#include "daemon/base/fs.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ftw.h>
#include <libgen.h>
#include <sys/stat.h>

namespace {

constexpr mode_t dir_mode = 0755;
constexpr int max_open_dirs = 10;

int
remove_entry(const char *path, const struct stat *, int, struct FTW *)
{
	(void)remove(path);
	return 0;
}

} // namespace

int
recursive_mkdir(const char *path)
{
	struct stat st;
	if (stat(path, &st) == 0)
		return S_ISDIR(st.st_mode) ? 0 : 1;

	char *copy = strdup(path);
	if (copy == nullptr)
		return -1;
	const char *parent = dirname(copy);
	bool at_top = strlen(parent) == 1 && (parent[0] == '.' || parent[0] == '/');
	int r = at_top ? 0 : recursive_mkdir(parent);
	free(copy);
	if (r != 0)
		return r;
	return mkdir(path, dir_mode);
}

int
recursive_remove(const char *path)
{
	return nftw(path, remove_entry, max_open_dirs, FTW_DEPTH | FTW_PHYS);
}

void
copy_lines(FILE *out, FILE *in, int max)
{
	char line[256];
	for (int n = 0; n < max && fgets(line, sizeof line, in) != nullptr; n++)
		fputs(line, out);
}

void
copy_file_lines(FILE *out, const char *path, int max)
{
	FILE *in = fopen(path, "r");
	if (in == nullptr)
		return;
	copy_lines(out, in, max);
	fclose(in);
}
