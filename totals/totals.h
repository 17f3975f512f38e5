// Traffic of all VLANs together per hour, day and month, rebuilt from the
// usage records on every tick and published in the totals files.
#pragma once

#include "usage/usage.h"

#include <cstdint>

constexpr unsigned TOTAL_HOURS = 24;  // running hour and 23 closed hours
constexpr unsigned TOTAL_DAYS = 60;   // running day and 59 closed days
constexpr unsigned TOTAL_MONTHS = 60; // running month and 59 filed months

// Bits of totals_flags.
constexpr uint32_t TOTALS_WRITTEN = 0x80000000;      // all three written in full
constexpr uint32_t TOTALS_HOURLY_DIRTY = 0x40000000; // an hour closed
constexpr uint32_t TOTALS_DAILY_DIRTY = 0x20000000;  // a day closed
constexpr uint32_t TOTALS_MONTHLY_DIRTY = 0x10000000;

// One period of the totals: a full local time, since the running period's
// keeps its minutes (one instance only, so size does not matter).
struct wu_total_slot {
	struct tm start_tm;
	wu_pair usage;
};

struct wu_month_slot {
	struct tm start_tm;
	struct tm end_tm;
	wu_pair usage;
};

struct alignas(8) wu_totals {
	uint32_t totals_flags; // the only field that survives from tick to tick
	int32_t hour_count;
	int32_t day_count;
	int32_t month_count;
	wu_total_slot hour_totals[TOTAL_HOURS];
	wu_total_slot day_totals[TOTAL_DAYS];
	wu_month_slot month_totals[TOTAL_MONTHS];
};

// Clears everything but totals_flags before a tick's fold.
void wu_totals_clear(wu_totals *totals);

// Fold one record in; mode has no effect.
void wu_update_hourly_total(wu_totals *totals, wu_usage *wu, int mode);
void wu_update_daily_total(wu_totals *totals, wu_usage *wu, int mode);
void wu_update_monthly_total(wu_totals *totals, wu_usage *wu);

// Full writers, from all slots. ignored and mode have no effect.
void wu_save_hourly_total_full(wu_totals *totals, int ignored, int mode);
void wu_save_daily_total_full(wu_totals *totals, int ignored, int mode);
void wu_save_monthly_total_full(wu_totals *totals, int ignored, int mode);

// Cheap writers: replace the running period's line, keep the rest.
void wu_save_hourly_total(wu_totals *totals);
void wu_save_daily_total(wu_totals *totals);
void wu_save_monthly_total(wu_totals *totals);
