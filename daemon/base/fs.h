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

// Writes a whole file: fill writes into the temporary file tmp, which is
// then renamed over target, so a reader never sees half a file. A fill that
// returns false wrote nothing worth keeping: tmp goes and target stays.
// Returns false, leaving target as it was, when tmp cannot be created.
template <typename Fill>
bool
replace_file(const char *tmp, const char *target, Fill fill)
{
	FILE *f = fopen(tmp, "w");
	if (f == nullptr)
		return false;
	bool keep = true;
	if constexpr (std::is_same_v<decltype(fill(f)), bool>)
		keep = fill(f);
	else
		fill(f);
	fclose(f);
	if (keep)
		(void)rename(tmp, target);
	else
		(void)unlink(tmp);
	return true;
}

// Copies at most max lines of in to out, each read with a 256-byte fgets:
// a longer line is copied in pieces, each counting as a line.
void copy_lines(FILE *out, FILE *in, int max);

// The same from the file at path; a file that cannot be opened adds nothing.
void copy_file_lines(FILE *out, const char *path, int max);
