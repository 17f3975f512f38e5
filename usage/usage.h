// A VLAN's usage record: its clock, the traffic of the latest tick, the
// running hour, day and month, and rings of closed hours and days.
#pragma once

#include "daemon/base/text.h"

#include <cstddef>
#include <cstdint>
#include <ctime>

// A traffic pair in bytes: the first and the second counter, in that order.
struct wu_pair {
	uint64_t first;
	uint64_t second;
};

// The local start of a period as the calendar fields it is printed from
// and that mktime takes back, with minutes and seconds 0 and daylight
// saving left to mktime. Kept as given, even out of range (a restored
// 2026-02-31 prints as such).
struct wu_start {
	int32_t year; // as tm_year
	uint8_t mon;  // as tm_mon
	uint8_t mday;
	uint8_t hour;
};

// A closed hour or day: its start and its traffic.
struct wu_slot {
	wu_pair usage;
	wu_start start_tm;
};

wu_start wu_start_of(const struct tm *tm);
struct tm wu_start_tm(wu_start start);

constexpr unsigned WU_HOUR_SLOTS = 32; // holds 31 closed hours, one stays free
constexpr unsigned WU_DAY_SLOTS = 64;  // holds 63 closed days

// Bits of wu_usage.changed, read and cleared by the totals.
constexpr uint8_t WU_CHANGED_HOUR = 0x80;
constexpr uint8_t WU_CHANGED_DAY = 0x40;
constexpr uint8_t WU_CHANGED_MONTH = 0x20;

struct wu_usage {
	time_t prev_time;
	time_t now;
	struct tm now_tm;
	int32_t vlan;
	int32_t time_synced;
	wu_pair total;
	wu_pair delta;
	time_t hour_time;
	wu_pair hour_usage;
	time_t day_time;
	wu_pair day_usage;
	time_t month_start;
	time_t update_time;
	wu_pair month_usage;
	// Ring indices run freely and are taken modulo the ring size.
	uint32_t day_tail;
	uint32_t day_head;
	wu_slot day_slots[WU_DAY_SLOTS];
	uint32_t hour_tail;
	uint32_t hour_head;
	wu_slot hour_slots[WU_HOUR_SLOTS];
	uint8_t changed;
	uint8_t unwritten; // changed bits of ring files whose last write failed
};

// One ring of closed periods of a record. The live periods are tail to
// head - 1, head - 1 the newest; the ring is empty when head and tail meet.
struct wu_ring {
	wu_slot *slots;
	uint32_t mask; // slot count - 1
	uint32_t *tail;
	uint32_t *head;
};

bool wu_ring_empty(const wu_ring &r);

// Files a period as the newest; a full ring drops its oldest, since one
// slot always stays free.
void wu_ring_push(const wu_ring &r, const wu_slot &slot);

// Files a period as the oldest; false when the ring is full.
bool wu_ring_push_oldest(const wu_ring &r, const wu_slot &slot);

// Visits the periods newest first, from head - 1 back to tail, each with
// its free-running index, for as long as visit returns true.
template <typename Visit>
void
wu_ring_walk(const wu_ring &r, Visit visit)
{
	for (uint32_t i = *r.head; (i & r.mask) != (*r.tail & r.mask);) {
		--i;
		if (!visit(i, r.slots[i & r.mask]))
			return;
	}
}

// What differs between a record's hours and its days.
struct wu_period {
	wu_ring (*ring)(wu_usage *wu);
	time_t wu_usage::*time; // when the running period last took traffic
	wu_pair wu_usage::*usage;
	bool day;
	void (*print_line)(out_file *o, const struct tm *tm, uint64_t first, uint64_t second);
	const char *history; // the ring's file in the run-time tree
	const char *display;
	int history_lines; // ring periods in history and display files
	void (*write_history)(wu_usage *wu);
	const char *backup;
	uint8_t changed;
};

extern const wu_period WU_HOURS;
extern const wu_period WU_DAYS;

// A zero-filled record, or null when memory is exhausted.
wu_usage *wu_new();

// Takes the tick's clock value.
void wu_update_time(wu_usage *wu, time_t t);

// Takes the tick's traffic, already a delta since the previous tick.
void wu_update_usage(wu_usage *wu, uint64_t first, uint64_t second);

// Period updates, run only while the clock is known to be set.
time_t wu_monthly_rollover(wu_usage *wu); // the new month_start
void wu_update_hourly(wu_usage *wu);
void wu_update_daily(wu_usage *wu);
void wu_update_monthly(wu_usage *wu);
void update_wu_usage_time_after_time_sync(wu_usage *wu);

// The clock-sync step, once per record; the tick bounds follow the clock.
void wu_time_sync(wu_usage *wu);

// History files of the run-time tree: a ring's file when it changes, the
// display files every tick.
void wu_write_hourly_history(wu_usage *wu);
void wu_write_daily_history(wu_usage *wu);
void wu_save_hourly(wu_usage *wu);
void wu_save_daily(wu_usage *wu);
void wu_save_monthly(wu_usage *wu);

// One line of a history, backup or totals file; nothing when a date lies
// before 2009. History and totals files hold KiB, backup files bytes.
void wu_print_hour_line(out_file *o, const struct tm *tm, uint64_t first, uint64_t second);
void wu_print_day_line(out_file *o, const struct tm *tm, uint64_t first, uint64_t second);
void wu_print_month_line(out_file *o, const struct tm *start_tm, const struct tm *end_tm,
			 uint64_t first, uint64_t second);

// Reads an amount at text, as the C library's strtoul family does; end is
// set behind it.
using wu_amount_reader = uint64_t (*)(const char *text, const char **end);

// Reads a line of a history or backup file: a date, with its hour when hour
// (and a second one when end is not null), then two amounts. A date that does not
// parse is all zero, a later date too, and the amounts stay as they were:
// then it returns false. Nothing past the line's end is read: missing
// amounts are 0.
bool wu_parse_line(const char *line, bool hour, struct tm *start, struct tm *end,
		   wu_amount_reader read_amount, wu_pair *amounts);

// Reads a month line of the run-time history; amounts stay in KiB,
// saturated at 4294967295 as the appliance's 32-bit strtoul has them.
void wu_parse_month_line(const char *line, struct tm *start_tm, struct tm *end_tm,
			 uint64_t *first, uint64_t *second);

// Path of one of a VLAN's files in the run-time tree.
void wu_vlan_path(char *path, size_t size, int vlan, const char *name);
