// The calendar month of a usage record: filing a finished month at the top
// of the monthly history, and dropping months that lie in the future once
// the clock has gone back before the running month.
#include "usage/usage.h"

#include "daemon/base/clock.h"
#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"

namespace {

constexpr int filed_history_lines = 60; // kept below a newly filed month

// Moves tm to 00:00:00 on day 1 of its month and returns that time.
time_t
month_start_of(struct tm *tm)
{
	cal_truncate(tm, CAL_MONTH);
	time_t t = local_mktime(tm);
	localtime_r(&t, tm);
	return t;
}

// Whether a history line's month started before cur_month.
bool
starts_before(struct tm start, time_t cur_month)
{
	return local_mktime(&start) < cur_month;
}

// Lines are parsed and printed again, so one whose dates do not parse or
// lie before 2009 is dropped on the way.
void
reprint_month_line(out_file *out, const char *line)
{
	struct tm start, end;
	uint64_t first = 0, second = 0;
	wu_parse_month_line(line, &start, &end, &first, &second);
	wu_print_month_line(out, &start, &end, first, second);
}

// The month is filed under its start as repaired to day 1.
void
file_month(const wu_usage *wu, const struct tm &start, time_t month_end, const char *history)
{
	replace_file(TMP_FILE, history, [&](out_file *o) {
		struct tm end;
		localtime_r(&month_end, &end);
		wu_print_month_line(o, &start, &end, wu->month_usage.first >> 10,
				    wu->month_usage.second >> 10);
		in_file old;
		if (!in_open(&old, history))
			return;
		char line[256];
		for (int n = 0; n < filed_history_lines && in_line(&old, line); n++)
			reprint_month_line(o, line);
		in_close(&old);
	});
}

// Keeps the history lines of months that started before cur_month.
void
drop_future_months(time_t cur_month, const char *history)
{
	in_file old;
	if (!in_open(&old, history))
		return;
	char line[256];
	struct tm start, end;
	uint64_t first = 0, second = 0;
	bool ahead = in_line(&old, line);
	if (ahead) {
		wu_parse_month_line(line, &start, &end, &first, &second);
		ahead = !starts_before(start, cur_month);
	}
	in_close(&old);
	if (!ahead || !in_open(&old, history))
		return;
	replace_file(TMP_FILE, history, [&](out_file *o) {
		while (in_line(&old, line)) {
			first = second = 0;
			wu_parse_month_line(line, &start, &end, &first, &second);
			if (starts_before(start, cur_month))
				wu_print_month_line(o, &start, &end, first, second);
		}
	});
	in_close(&old);
}

} // namespace

time_t
wu_monthly_rollover(wu_usage *wu)
{
	struct tm now_tm = wu->now_tm;
	time_t now = local_mktime(&now_tm);
	struct tm start_tm;
	localtime_r(&wu->month_start, &start_tm);
	if (start_tm.tm_mday != 1) {
		log_notice("wu_monthly_rollover(): start_tm.tm_day not at month start month %d mday %d, "
			   "wu->month_start %d. fixing...\n",
			   start_tm.tm_mon, start_tm.tm_mday, static_cast<int>(wu->month_start));
		(void)month_start_of(&start_tm);
	}
	time_t month_end = cal_month_end(&start_tm);
	char history[256];
	wu_vlan_path(history, sizeof history, wu->vlan, MONTHLY_HISTORY);

	if (month_end < now) {
		if (wu->month_start != 0)
			file_month(wu, start_tm, month_end, history);
		wu->changed |= WU_CHANGED_MONTH;
	} else if (now < local_mktime(&start_tm)) {
		localtime_r(&now, &now_tm);
		log_notice("wu_monthly_rollover(): > update_monthly_history start_tm:year %d mon %d day "
			   "%d, _time:year %d mon %d day %d\n",
			   start_tm.tm_year, start_tm.tm_mon, start_tm.tm_mday, now_tm.tm_year,
			   now_tm.tm_mon, now_tm.tm_mday);
		drop_future_months(month_start_of(&now_tm), history);
		wu->changed |= WU_CHANGED_MONTH;
	}
	now_tm = wu->now_tm;
	wu->month_start = month_start_of(&now_tm);
	return wu->month_start;
}
