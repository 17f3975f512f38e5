// Trimming a client directory before its files are written: files dated in
// the future go once the clock is known, and only the newest are kept.
#include "client/internal.h"

#include "client/strutils.h"
#include "daemon/base/paths.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

namespace {

// A file is named by its period's date, which orders as text; it is
// deleted as that name plus ".csv", whatever its own suffix was.
void
delete_named(const char *dir, const char *name)
{
	char path[512];
	snprintf(path, sizeof path, "%s/%s.csv", dir, name);
	(void)unlink(path);
}

bool
collect_names(const char *dir, iplist *list)
{
	DIR *d = opendir(dir);
	if (d == nullptr)
		return false;
	while (const struct dirent *de = readdir(d)) {
		if (de->d_name[0] == '.')
			continue;
		char name[256];
		size_t n = strcspn(de->d_name, ".");
		memcpy(name, de->d_name, n);
		name[n] = '\0';
		(void)insert_iplist(list, name);
	}
	closedir(d);
	return true;
}

int
compare_newest_first(const void *a, const void *b)
{
	return strcmp(*static_cast<char *const *>(b), *static_cast<char *const *>(a));
}

// Newest date first; a stray name that is no date may sort anywhere. An
// empty list may have no array at all.
void
sort_newest_first(iplist *list)
{
	if (list->count > 1)
		qsort(list->ip, static_cast<size_t>(list->count), sizeof *list->ip, compare_newest_first);
}

void
drop_future(const char *dir, int period, iplist *list)
{
	if (access(CLOCK_MARKER, R_OK) != 0)
		return;
	if (static_cast<unsigned>(period) > CLIENT_MONTHLY)
		return;
	time_t t = time(nullptr);
	struct tm tm;
	localtime_r(&t, &tm);
	char now[TEXT_FIELD_MAX + 1];
	*text_date(now, &tm, period == CLIENT_HOURLY) = '\0';
	while (list->count > 0 && strcmp(list->ip[0], now) > 0) {
		delete_named(dir, list->ip[0]);
		(void)remove_iplist(list, list->ip[0]);
	}
}

} // namespace

void
client_usage_dir_limit(const char *dir, int period, int limit, int flag)
{
	iplist *list = init_iplist(dir, period, limit, flag);
	if (list == nullptr)
		return;
	if (collect_names(dir, list)) {
		sort_newest_first(list);
		drop_future(dir, period, list);
		for (int i = std::max(limit, 0); i < list->count; i++)
			delete_named(dir, list->ip[i]);
	}
	free_iplist(list);
}
