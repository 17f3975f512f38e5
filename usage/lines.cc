// The hour, day and month lines shared by the history, backup and totals
// files, and the one parser of such lines.
#include "usage/usage.h"

#include "daemon/base/clock.h"
#include "daemon/base/text.h"

#include <cstring>

namespace {

constexpr time_t first_printable = 1230768000; // 2009-01-01 00:00:00 UTC

// Fields of an ordinary date between 2010 and 2036: after 2009 and within
// a 32-bit time_t whatever the zone, so no conversion is needed to know.
bool
plainly_printable(const struct tm *tm)
{
	return tm->tm_year >= 110 && tm->tm_year <= 136 && tm->tm_mon >= 0 && tm->tm_mon <= 11 &&
	       tm->tm_mday >= 1 && tm->tm_mday <= 31 && tm->tm_hour >= 0 && tm->tm_hour <= 23 &&
	       tm->tm_min >= 0 && tm->tm_min <= 59 && tm->tm_sec >= 0 && tm->tm_sec <= 60;
}

// Clocks that were never set give times before 2009: such periods are not
// shown.
bool
printable(const struct tm *tm)
{
	if (plainly_printable(tm))
		return true;
	struct tm copy = *tm;
	return local_mktime(&copy) >= first_printable;
}

void
print_amounts(out_file *o, uint64_t first, uint64_t second)
{
	out_char(o, ',');
	out_field(o, text_u64, first);
	out_char(o, ',');
	out_field(o, text_u64, second);
	out_char(o, '\n');
}

void
print_period_line(out_file *o, const struct tm *tm, bool hour, uint64_t first, uint64_t second)
{
	if (!printable(tm))
		return;
	out_field(o, text_date, tm, hour);
	print_amounts(o, first, second);
}

// strtoul as the appliance's 32-bit unsigned long has it: a value beyond
// 32 bits saturates, a negative one wraps.
uint64_t
parse_kib(const char *p, const char **end)
{
	text_number n = text_parse_number(p, end);
	if (n.overflow || n.magnitude > UINT32_MAX)
		return UINT32_MAX;
	uint32_t magnitude = static_cast<uint32_t>(n.magnitude);
	return n.negative ? 0 - magnitude : magnitude;
}

// Steps over one separator, unless the line has ended.
const char *
skip_one(const char *p)
{
	return *p != '\0' ? p + 1 : p;
}

} // namespace

void
wu_print_hour_line(out_file *o, const struct tm *tm, uint64_t first, uint64_t second)
{
	print_period_line(o, tm, true, first, second);
}

void
wu_print_day_line(out_file *o, const struct tm *tm, uint64_t first, uint64_t second)
{
	print_period_line(o, tm, false, first, second);
}

void
wu_print_month_line(out_file *o, const struct tm *start_tm, const struct tm *end_tm,
		    uint64_t first, uint64_t second)
{
	if (!printable(start_tm) || !printable(end_tm))
		return;
	out_field(o, text_date, start_tm, false);
	out_char(o, ',');
	out_field(o, text_date, end_tm, false);
	print_amounts(o, first, second);
}

// A date that does not parse is cleared of whatever was filled in, so a
// line with such a date prints as invalid; a good start date before a bad
// end date stays.
bool
wu_parse_line(const char *line, bool hour, struct tm *start, struct tm *end,
	      wu_amount_reader read_amount, wu_pair *amounts)
{
	memset(start, 0, sizeof *start);
	if (end != nullptr)
		memset(end, 0, sizeof *end);
	const char *p = text_parse_date(line, start, hour);
	if (p == nullptr) {
		memset(start, 0, sizeof *start);
		return false;
	}
	if (end != nullptr) {
		p = text_parse_date(skip_one(p), end, hour);
		if (p == nullptr) {
			memset(end, 0, sizeof *end);
			return false;
		}
	}
	const char *after;
	amounts->first = read_amount(skip_one(p), &after);
	amounts->second = read_amount(skip_one(after), &after);
	return true;
}

void
wu_parse_month_line(const char *line, struct tm *start_tm, struct tm *end_tm, uint64_t *first,
		    uint64_t *second)
{
	wu_pair amounts;
	if (!wu_parse_line(line, false, start_tm, end_tm, parse_kib, &amounts))
		return;
	*first = amounts.first;
	*second = amounts.second;
}
