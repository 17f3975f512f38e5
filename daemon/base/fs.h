// Making and removing directory trees, and writing whole files.
#pragma once

#include <cstdio>
#include <type_traits>
#include <unistd.h>

// Makes path and any missing parents, mode 0755. Returns 0 when the
// directory exists afterwards, 1 when path or an ancestor exists but is not
// a directory, -1 when out of memory, else the failing mkdir's result.
int recursive_mkdir(const char *path);

// Removes a file or a whole tree without following symbolic links; one
// entry that cannot be removed does not stop the walk. Returns the walk's
// result: 0 when it completed, -1 when path does not exist.
int recursive_remove(const char *path);

// A whole-file write's temporary file, made afresh: a link, FIFO or
// directory planted at its name is never followed, written or waited on.
// Null when it cannot be made.
FILE *open_temporary(const char *tmp);

// Closes a temporary file; false when a write or the close failed.
bool close_temporary(FILE *f);

enum replace_status {
	REPLACE_DONE,         // target replaced, or left alone as fill asked
	REPLACE_FAILED,       // a write failed: target left as it was
	REPLACE_NO_TEMPORARY, // tmp could not be made: target left as it was
};

// Writes a whole file: fill writes into the temporary file tmp, which then
// replaces target, so a reader never sees half a file, and a failed write
// (a full disk) never costs the file it had. A fill that returns false
// wrote nothing worth keeping: tmp goes and target stays.
template <typename Fill>
replace_status
replace_file(const char *tmp, const char *target, Fill fill)
{
	FILE *f = open_temporary(tmp);
	if (f == nullptr)
		return REPLACE_NO_TEMPORARY;
	bool keep = true;
	if constexpr (std::is_same_v<decltype(fill(f)), bool>)
		keep = fill(f);
	else
		fill(f);
	bool written = close_temporary(f);
	if (keep && written)
		(void)rename(tmp, target);
	else
		(void)unlink(tmp);
	return written ? REPLACE_DONE : REPLACE_FAILED;
}

// Copies at most max lines of in to out, each read with a 256-byte fgets:
// a longer line is copied in pieces, each counting as a line.
void copy_lines(FILE *out, FILE *in, int max);

// The same from the file at path; a file that cannot be opened adds nothing.
void copy_file_lines(FILE *out, const char *path, int max);
