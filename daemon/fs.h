// Making and removing directory trees.
#pragma once

// Makes path and any missing parents, mode 0755. Returns 0 when the
// directory exists afterwards, 1 when path or an ancestor exists but is not
// a directory, -1 when out of memory, else the failing mkdir's result.
int recursive_mkdir(const char *path);

// Removes a file or a whole tree without following symbolic links; one
// entry that cannot be removed does not stop the walk. Returns the walk's
// result: 0 when it completed, -1 when path does not exist.
int recursive_remove(const char *path);
