// The hour, day and month lines shared by the history, backup and totals
// files, and the month line parser.
#include "usage/usage.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr time_t first_printable = 1230768000; // 2009-01-01 00:00:00 UTC

// Clocks that were never set give times before 2009: such periods are not
// shown.
bool
printable(const struct tm *tm)
{
	struct tm copy = *tm;
	copy.tm_isdst = -1;
	return mktime(&copy) >= first_printable;
}

void
print_period_line(FILE *f, const struct tm *tm, const char *format, uint64_t first_kib,
		  uint64_t second_kib)
{
	if (!printable(tm))
		return;
	char date[32];
	strftime(date, sizeof date, format, tm);
	fprintf(f, "%s,%llu,%llu\n", date, static_cast<unsigned long long>(first_kib),
		static_cast<unsigned long long>(second_kib));
}

// strtoul as the appliance's 32-bit unsigned long has it: a value beyond
// 32 bits saturates, a negative one wraps.
uint64_t
parse_kib(const char *p, char **end)
{
	errno = 0;
	unsigned long long v = strtoull(p, end, 10);
	if (errno == ERANGE)
		return UINT32_MAX;
	while (isspace(static_cast<unsigned char>(*p)))
		p++;
	bool negative = *p == '-';
	unsigned long long magnitude = negative ? 0 - v : v;
	if (magnitude > UINT32_MAX)
		return UINT32_MAX;
	return negative ? static_cast<uint32_t>(0 - static_cast<uint32_t>(magnitude)) : magnitude;
}

} // namespace

void
wu_print_hour_line(FILE *f, const struct tm *tm, uint64_t first_kib, uint64_t second_kib)
{
	print_period_line(f, tm, "%Y-%m-%d-%H", first_kib, second_kib);
}

void
wu_print_day_line(FILE *f, const struct tm *tm, uint64_t first_kib, uint64_t second_kib)
{
	print_period_line(f, tm, "%Y-%m-%d", first_kib, second_kib);
}

void
wu_print_month_line(FILE *f, const struct tm *start_tm, const struct tm *end_tm,
		    uint64_t first_kib, uint64_t second_kib)
{
	if (!printable(start_tm) || !printable(end_tm))
		return;
	char start[32], end[32];
	strftime(start, sizeof start, "%Y-%m-%d", start_tm);
	strftime(end, sizeof end, "%Y-%m-%d", end_tm);
	fprintf(f, "%s,%s,%llu,%llu\n", start, end, static_cast<unsigned long long>(first_kib),
		static_cast<unsigned long long>(second_kib));
}

// A date that does not parse leaves both times all zero, whatever strptime
// filled in before it gave up, so the line prints as invalid. Nothing past
// the line's end is read: missing amounts are 0.
void
wu_parse_month_line(const char *line, struct tm *start_tm, struct tm *end_tm, uint64_t *first,
		    uint64_t *second)
{
	memset(start_tm, 0, sizeof *start_tm);
	memset(end_tm, 0, sizeof *end_tm);
	const char *p = strptime(line, "%Y-%m-%d", start_tm);
	if (p == nullptr) {
		memset(start_tm, 0, sizeof *start_tm);
		return;
	}
	p = *p != '\0' ? p + 1 : p;
	p = strptime(p, "%Y-%m-%d", end_tm);
	if (p == nullptr) {
		memset(start_tm, 0, sizeof *start_tm);
		memset(end_tm, 0, sizeof *end_tm);
		return;
	}
	char *end;
	p = *p != '\0' ? p + 1 : p;
	*first = parse_kib(p, &end);
	p = *end != '\0' ? end + 1 : end;
	*second = parse_kib(p, &end);
}
