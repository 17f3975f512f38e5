// The name list of the platform's string-utilities library, libstrutils:
// the client file retention collects a directory's names in it. Our own
// implementation is built in unless TALLY_SYSTEM_STRUTILS links the
// platform's library, whose declarations these follow.
#pragma once

extern "C" {

struct iplist {
	int count;
	char **ip; // the names, in insertion order, each NUL-terminated
};

// A new empty list, or null. The directory, period, limit and flag are the
// platform's bookkeeping; the list does not depend on them.
struct iplist *init_iplist(const char *dir, int period, int limit, int flag);

// Appends a copy of name; 0, or -1 when memory is exhausted.
int insert_iplist(struct iplist *list, const char *name);

// Removes the first name equal to name, keeping the others in order;
// 0, or -1 when there is none.
int remove_iplist(struct iplist *list, const char *name);

void free_iplist(struct iplist *list);
}
