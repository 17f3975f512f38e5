// Reading a run-time tree. Lines are checked field by field: a line the
// daemon could not have written is reported and left out, never guessed at.
#include "tools/report/tree.h"

#include "daemon/base/layout.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>

namespace {

constexpr char client_suffix[] = ".csv";
constexpr uint64_t max_kib = UINT64_MAX / 1024; // the daemon counts 64-bit bytes
constexpr unsigned max_tag = 65535;
constexpr int max_fields = 5; // a client line's

const char *const display_file[REPORT_PERIODS] = {HOURLY_DISPLAY, DAILY_DISPLAY, MONTHLY_DISPLAY};
const char *const totals_file[REPORT_PERIODS] = {HOURLY_TOTALS, DAILY_TOTALS, MONTHLY_TOTALS};

// A directory entry names a number only as "%d" prints it, so that the
// path built back from the number is the entry's.
bool
numeric_name(const char *name, int *n)
{
	uint64_t v;
	if ((name[0] == '0' && name[1] != '\0') || !report_parse_number(name, REPORT_MAX_VLAN, &v))
		return false;
	*n = static_cast<int>(v);
	return true;
}

// A VLAN is taken from any directory that names it, and kept only when the
// path the layout builds for it is there: a copy in another directory is
// not a VLAN of its own.
void
list_bucket(const char *root, const char *bucket_path, std::vector<int> *vlans)
{
	DIR *dir = opendir(bucket_path);
	if (dir == nullptr)
		return;
	while (const dirent *e = readdir(dir)) {
		int vlan;
		if (numeric_name(e->d_name, &vlan) && report_has_vlan(root, vlan))
			vlans->push_back(vlan);
	}
	closedir(dir);
}

// Splits line in place at its commas. Returns the number of fields, or
// max + 1 when there are more.
int
split(char *line, char *fields[], int max)
{
	int n = 0;
	for (char *p = line;; p++) {
		if (n == max)
			return max + 1;
		fields[n++] = p;
		p = strchr(p, ',');
		if (p == nullptr)
			return n;
		*p = '\0';
	}
}

bool
copy_field(char *to, size_t size, const char *text)
{
	size_t n = strlen(text);
	if (n >= size)
		return false;
	memcpy(to, text, n + 1);
	return true;
}

// "start,first,second", or "start,end,first,second" for a month.
bool
parse_usage(char *line, report_period period, report_usage *u)
{
	char *f[max_fields];
	int want = period == REPORT_MONTH ? 4 : 3;
	if (split(line, f, want) != want || !report_is_date(f[0], period) ||
	    !copy_field(u->start, sizeof u->start, f[0]))
		return false;
	u->end[0] = '\0';
	if (period == REPORT_MONTH &&
	    (!report_is_date(f[1], REPORT_DAY) || !copy_field(u->end, sizeof u->end, f[1])))
		return false;
	return report_parse_number(f[want - 2], max_kib, &u->kib[0]) &&
	       report_parse_number(f[want - 1], max_kib, &u->kib[1]);
}

// "address,first,second,MAC,tag", the MAC empty when unknown.
bool
parse_client(char *line, report_client *c)
{
	char *f[max_fields];
	in_addr addr;
	uint64_t tag;
	if (split(line, f, max_fields) != max_fields || inet_pton(AF_INET, f[0], &addr) != 1 ||
	    (f[3][0] != '\0' && !report_is_mac(f[3])) || !report_parse_number(f[4], max_tag, &tag) ||
	    !copy_field(c->ip, sizeof c->ip, f[0]) || !copy_field(c->mac, sizeof c->mac, f[3]))
		return false;
	c->addr = ntohl(addr.s_addr);
	c->tag = static_cast<uint32_t>(tag);
	return report_parse_number(f[1], max_kib, &c->kib[0]) &&
	       report_parse_number(f[2], max_kib, &c->kib[1]);
}

// The one walk over a file's lines: parse takes each line without its
// newline and says whether it was well formed. A line too long for the
// buffer is no line the daemon writes.
template <typename Parse>
bool
read_lines(const char *path, bool path_fits, size_t max, Parse parse)
{
	FILE *f = path_fits ? fopen(path, "r") : nullptr;
	if (f == nullptr) {
		report_message("cannot read %s: %s", path, strerror(path_fits ? errno : ENAMETOOLONG));
		return false;
	}
	char line[256];
	for (size_t number = 1; number <= max && fgets(line, sizeof line, f) != nullptr; number++) {
		size_t n = strlen(line);
		bool cut = n > 0 && line[n - 1] != '\n' && !feof(f);
		if (n > 0 && line[n - 1] == '\n')
			line[n - 1] = '\0';
		if (cut) {
			int c;
			do
				c = getc(f);
			while (c != EOF && c != '\n');
		}
		if (cut || !parse(line))
			report_message("%s:%zu: malformed line skipped", path, number);
	}
	fclose(f);
	return true;
}

bool
client_file_path(char *path, size_t size, const char *root, int vlan, report_period period,
		 const char *date)
{
	char name[32];
	int n = snprintf(name, sizeof name, "%s%s", date, client_suffix);
	return n > 0 && static_cast<size_t>(n) < sizeof name &&
	       layout_vlan_path(path, size, root, vlan, sw_usage_dir[period], name);
}

} // namespace

bool
report_is_dir(const char *path)
{
	struct stat st;
	return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool
report_list_vlans(const char *root, std::vector<int> *vlans)
{
	DIR *dir = opendir(root);
	if (dir == nullptr)
		return false;
	while (const dirent *e = readdir(dir)) {
		int bucket;
		char path[PATH_MAX];
		if (numeric_name(e->d_name, &bucket) &&
		    layout_root_path(path, sizeof path, root, e->d_name))
			list_bucket(root, path, vlans);
	}
	closedir(dir);
	std::sort(vlans->begin(), vlans->end());
	vlans->erase(std::unique(vlans->begin(), vlans->end()), vlans->end());
	return true;
}

bool
report_has_vlan(const char *root, int vlan)
{
	char path[PATH_MAX];
	return layout_vlan_path(path, sizeof path, root, vlan, VLAN_DIR) && report_is_dir(path);
}

bool
report_read_usage(const char *root, int vlan, report_period period, size_t max,
		  std::vector<report_usage> *rows)
{
	char path[PATH_MAX];
	bool fits = vlan == REPORT_TOTALS
			    ? layout_root_path(path, sizeof path, root, totals_file[period])
			    : layout_vlan_path(path, sizeof path, root, vlan, VLAN_DIR, display_file[period]);
	return read_lines(path, fits, max, [&](char *line) {
		report_usage u;
		if (!parse_usage(line, period, &u))
			return false;
		rows->push_back(u);
		return true;
	});
}

// Dates sort as text, so the newest file has the greatest name.
bool
report_newest_client_date(const char *root, int vlan, report_period period, char date[14])
{
	char path[PATH_MAX];
	DIR *dir = layout_vlan_path(path, sizeof path, root, vlan, sw_usage_dir[period])
			   ? opendir(path)
			   : nullptr;
	if (dir == nullptr)
		return false;
	date[0] = '\0';
	while (const dirent *e = readdir(dir)) {
		char name[14];
		const char *suffix = strrchr(e->d_name, '.');
		size_t n = suffix == nullptr ? 0 : static_cast<size_t>(suffix - e->d_name);
		if (suffix == nullptr || strcmp(suffix, client_suffix) != 0 || n >= sizeof name)
			continue;
		memcpy(name, e->d_name, n);
		name[n] = '\0';
		if (report_is_date(name, period) && strcmp(name, date) > 0)
			memcpy(date, name, n + 1);
	}
	closedir(dir);
	return date[0] != '\0';
}

bool
report_has_client_date(const char *root, int vlan, report_period period, const char *date)
{
	char path[PATH_MAX];
	struct stat st;
	return client_file_path(path, sizeof path, root, vlan, period, date) && stat(path, &st) == 0 &&
	       S_ISREG(st.st_mode);
}

bool
report_read_clients(const char *root, int vlan, report_period period, const char *date,
		    std::vector<report_client> *rows)
{
	char path[PATH_MAX];
	bool fits = client_file_path(path, sizeof path, root, vlan, period, date);
	return read_lines(path, fits, SIZE_MAX, [&](char *line) {
		report_client c;
		if (!parse_client(line, &c))
			return false;
		rows->push_back(c);
		return true;
	});
}
