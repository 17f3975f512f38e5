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
#include <unistd.h>

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
int
open_temporary(const char *tmp)
{
	constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
	constexpr mode_t mode = 0666; // as fopen makes files: the umask decides
	int fd = open(tmp, flags, mode);
	if (fd < 0 && errno == EEXIST) {
		(void)unlink(tmp);
		fd = open(tmp, flags, mode);
	}
	return fd;
}

replace_status
replace_file_by(const char *tmp, const char *target, bool (*fill)(out_file *o, void *context),
		void *context)
{
	int fd = open_temporary(tmp);
	if (fd < 0)
		return REPLACE_NO_TEMPORARY;
	out_file out;
	out_start(&out, fd);
	bool keep = fill(&out, context);
	bool written = out_finish(&out);
	if (keep && written)
		(void)rename(tmp, target);
	else
		(void)unlink(tmp);
	return written ? REPLACE_DONE : REPLACE_FAILED;
}

void
copy_lines(out_file *out, in_file *in, int max)
{
	char line[256];
	for (int n = 0; n < max && in_line(in, line); n++)
		out_str(out, line);
}

void
copy_file_lines(out_file *out, const char *path, int max)
{
	in_file in;
	if (!in_open(&in, path))
		return;
	copy_lines(out, &in, max);
	in_close(&in);
}
