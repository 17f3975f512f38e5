// Our implementation of the platform's name list (see strutils.h).
#include "client/strutils.h"

#include <cstdlib>
#include <cstring>

namespace {

struct owned_list {
	iplist list; // first, so the caller's pointer is the owner's too
	int capacity;
};

} // namespace

extern "C" {

struct iplist *
init_iplist(const char *, int, int, int)
{
	auto *owned = static_cast<owned_list *>(calloc(1, sizeof(owned_list)));
	return owned == nullptr ? nullptr : &owned->list;
}

int
insert_iplist(struct iplist *list, const char *name)
{
	auto *owned = reinterpret_cast<owned_list *>(list);
	if (list->count == owned->capacity) {
		int capacity = owned->capacity == 0 ? 16 : owned->capacity * 2;
		auto **names = static_cast<char **>(realloc(list->ip, capacity * sizeof(char *)));
		if (names == nullptr)
			return -1;
		list->ip = names;
		owned->capacity = capacity;
	}
	char *copy = strdup(name);
	if (copy == nullptr)
		return -1;
	list->ip[list->count++] = copy;
	return 0;
}

int
remove_iplist(struct iplist *list, const char *name)
{
	for (int i = 0; i < list->count; i++) {
		if (strcmp(list->ip[i], name) != 0)
			continue;
		free(list->ip[i]);
		memmove(&list->ip[i], &list->ip[i + 1], (list->count - i - 1) * sizeof(char *));
		list->count--;
		return 0;
	}
	return -1;
}

void
free_iplist(struct iplist *list)
{
	if (list == nullptr)
		return;
	for (int i = 0; i < list->count; i++)
		free(list->ip[i]);
	free(list->ip);
	free(reinterpret_cast<owned_list *>(list));
}
}
