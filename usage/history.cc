// The VLAN history files of the run-time tree: the closed hours and days
// of the rings, and the display files that put the running period on top
// of each history.
#include "usage/usage.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

namespace {

constexpr int hour_history_lines = 23; // and 24 in the display file
constexpr int day_history_lines = 59;  // and 60
constexpr int month_history_lines = 59;

uint64_t
kib(uint64_t bytes)
{
	return bytes >> 10;
}

// Newest first, from head - 1 back to tail, at most limit slots.
template <typename Print>
void
print_ring(FILE *f, const wu_slot *slots, uint32_t size, uint32_t tail, uint32_t head, int limit,
	   Print print)
{
	uint32_t mask = size - 1;
	if ((head & mask) == (tail & mask))
		return;
	for (uint32_t i = head - 1, n = 0; static_cast<int>(n) < limit; i--, n++) {
		const wu_slot &slot = slots[i & mask];
		struct tm tm = wu_start_tm(slot.start_tm);
		print(f, &tm, kib(slot.usage.first), kib(slot.usage.second));
		if ((i & mask) == (tail & mask))
			break;
	}
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
	replace_file(TMP_FILE, path, [&](FILE *f) {
		print_running(f);
		copy_file_lines(f, history, lines);
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
	char path[256];
	wu_vlan_path(path, sizeof path, wu->vlan, HOURLY_HISTORY);
	replace_file(TMP_FILE, path, [wu](FILE *f) {
		print_ring(f, wu->hour_slots, WU_HOUR_SLOTS, wu->hour_tail, wu->hour_head,
			   hour_history_lines, wu_print_hour_line);
	});
}

void
wu_write_daily_history(wu_usage *wu)
{
	char path[256];
	wu_vlan_path(path, sizeof path, wu->vlan, DAILY_HISTORY);
	replace_file(TMP_FILE, path, [wu](FILE *f) {
		print_ring(f, wu->day_slots, WU_DAY_SLOTS, wu->day_tail, wu->day_head,
			   day_history_lines, wu_print_day_line);
	});
}

void
wu_save_hourly(wu_usage *wu)
{
	save_display(wu, HOURLY_HISTORY, HOURLY_DISPLAY, hour_history_lines,
		     [wu](FILE *f) {
			     struct tm tm;
			     localtime_r(&wu->hour_time, &tm);
			     wu_print_hour_line(f, &tm, kib(wu->hour_usage.first),
						kib(wu->hour_usage.second));
		     });
}

void
wu_save_daily(wu_usage *wu)
{
	save_display(wu, DAILY_HISTORY, DAILY_DISPLAY, day_history_lines,
		     [wu](FILE *f) {
			     struct tm tm;
			     localtime_r(&wu->day_time, &tm);
			     wu_print_day_line(f, &tm, kib(wu->day_usage.first),
					       kib(wu->day_usage.second));
		     });
}

// The running month ends, as far as the display goes, today.
void
wu_save_monthly(wu_usage *wu)
{
	save_display(wu, MONTHLY_HISTORY, MONTHLY_DISPLAY, month_history_lines,
		     [wu](FILE *f) {
			     struct tm start;
			     localtime_r(&wu->month_start, &start);
			     wu_print_month_line(f, &start, &wu->now_tm, kib(wu->month_usage.first),
						 kib(wu->month_usage.second));
		     });
}
