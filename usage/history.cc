// The VLAN history files of the run-time tree: the closed hours and days
// of the rings, and the display files that put the running period on top
// of each history.
#include "usage/usage.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

namespace {

constexpr int month_history_lines = 59; // below the running month

uint64_t
kib(uint64_t bytes)
{
	return bytes >> 10;
}

// A ring's file is written only when the ring changes; one that could not
// be written is written again on the next tick.
void
write_history(wu_usage *wu, const wu_period &period)
{
	char path[256];
	wu_vlan_path(path, sizeof path, wu->vlan, period.history);
	replace_status status = replace_file(TMP_FILE, path, [&](out_file *o) {
		int lines = 0;
		wu_ring_walk(period.ring(wu), [&](uint32_t, const wu_slot &slot) {
			struct tm tm = wu_start_tm(slot.start_tm);
			period.print_line(o, &tm, kib(slot.usage.first), kib(slot.usage.second));
			return ++lines < period.history_lines;
		});
	});
	if (status == REPLACE_DONE)
		wu->unwritten &= static_cast<uint8_t>(~period.changed);
	else
		wu->unwritten |= period.changed;
}

// A display file: the running period's line, then the head of its history.
template <typename PrintRunning>
void
save_display(const wu_usage *wu, const char *history_name, const char *display_name, int lines,
	     PrintRunning print_running)
{
	char history[256], path[256];
	wu_vlan_path(history, sizeof history, wu->vlan, history_name);
	wu_vlan_path(path, sizeof path, wu->vlan, display_name);
	replace_file(TMP_FILE, path, [&](out_file *o) {
		print_running(o);
		copy_file_lines(o, history, lines);
	});
}

// The running hour keeps its minutes, which its line does not show.
void
save_ring_display(wu_usage *wu, const wu_period &period)
{
	if (wu->unwritten & period.changed)
		write_history(wu, period);
	save_display(wu, period.history, period.display, period.history_lines, [&](out_file *o) {
		struct tm tm;
		localtime_r(&(wu->*period.time), &tm);
		const wu_pair &usage = wu->*period.usage;
		period.print_line(o, &tm, kib(usage.first), kib(usage.second));
	});
}

} // namespace

void
wu_vlan_path(char *path, size_t size, int vlan, const char *name)
{
	layout_vlan_path(path, size, RUN_ROOT, vlan, VLAN_DIR, name);
}

void
wu_write_hourly_history(wu_usage *wu)
{
	write_history(wu, WU_HOURS);
}

void
wu_write_daily_history(wu_usage *wu)
{
	write_history(wu, WU_DAYS);
}

void
wu_save_hourly(wu_usage *wu)
{
	save_ring_display(wu, WU_HOURS);
}

void
wu_save_daily(wu_usage *wu)
{
	save_ring_display(wu, WU_DAYS);
}

// The running month ends, as far as the display goes, today.
void
wu_save_monthly(wu_usage *wu)
{
	save_display(wu, MONTHLY_HISTORY, MONTHLY_DISPLAY, month_history_lines, [wu](out_file *o) {
		struct tm start;
		localtime_r(&wu->month_start, &start);
		wu_print_month_line(o, &start, &wu->now_tm, kib(wu->month_usage.first),
				    kib(wu->month_usage.second));
	});
}
