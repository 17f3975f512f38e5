// Making and removing directory trees, and writing whole files.
#pragma once

#include "daemon/base/text.h"

#include <type_traits>

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
// -1 when it cannot be made.
int open_temporary(const char *tmp);

enum replace_status {
	REPLACE_DONE,         // target replaced, or left alone as fill asked
	REPLACE_FAILED,       // a write failed: target left as it was
	REPLACE_NO_TEMPORARY, // tmp could not be made: target left as it was
};

// Writes a whole file: fill writes into the temporary file tmp, which then
// replaces target, so a reader never sees half a file, and a failed write
// (a full disk) never costs the file it had. A fill that returns false
// wrote nothing worth keeping: tmp goes and target stays.
replace_status replace_file_by(const char *tmp, const char *target,
			       bool (*fill)(out_file *o, void *context), void *context);

// The same for a fill of any callable kind, returning void or bool.
template <typename Fill>
replace_status
replace_file(const char *tmp, const char *target, Fill fill)
{
	return replace_file_by(tmp, target, [](out_file *o, void *context) {
		Fill &f = *static_cast<Fill *>(context);
		if constexpr (std::is_same_v<decltype(f(o)), bool>) {
			return f(o);
		} else {
			f(o);
			return true;
		}
	}, &fill);
}

// Copies at most max lines of in to out, each read as a 256-byte fgets
// reads it: a longer line is copied in pieces, each counting as a line.
void copy_lines(out_file *out, in_file *in, int max);

// The same from the file at path; a file that cannot be opened adds nothing.
void copy_file_lines(out_file *out, const char *path, int max);
