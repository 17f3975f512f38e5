// Making and removing directory trees, and the temporary files of
// whole-file writes.
#include "daemon/base/fs.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
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

// Only a file this call creates is written: an exclusive create does not
// follow a link and does not open what already stands at the name. What is
// there (an interrupted write's leftover, or something planted in the
// world-writable /tmp) is removed once; a directory cannot be, so then
// there is no temporary file.
FILE *
open_temporary(const char *tmp)
{
	constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
	constexpr mode_t mode = 0666; // as fopen makes files: the umask decides
	int fd = open(tmp, flags, mode);
	if (fd < 0 && errno == EEXIST) {
		(void)unlink(tmp);
		fd = open(tmp, flags, mode);
	}
	if (fd < 0)
		return nullptr;
	FILE *f = fdopen(fd, "w");
	if (f == nullptr) {
		(void)close(fd);
		(void)unlink(tmp);
	}
	return f;
}

bool
close_temporary(FILE *f)
{
	bool written = ferror(f) == 0;
	return fclose(f) == 0 && written;
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
