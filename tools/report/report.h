// What tally-report reads from a run-time tree, as every part of it
// passes it on: periods, their lines, client lines, and the one funnel for
// messages to standard error.
#pragma once

#include <cstdarg>
#include <cstdint>

enum report_period { REPORT_HOUR, REPORT_DAY, REPORT_MONTH };
constexpr int REPORT_PERIODS = 3;

// "hour", "day", "month", and the history views' "hourly", "daily", "monthly".
extern const char *const report_period_name[REPORT_PERIODS];
extern const char *const report_history_name[REPORT_PERIODS];

constexpr int REPORT_MAX_VLAN = 65535; // the statistics file's VLAN field is 16 bits

// The VLAN number that stands for the all-VLAN totals.
constexpr int REPORT_TOTALS = -1;

// One line of a VLAN's or the totals' period files: the period's start as
// the file writes it (2026-11-03-09, 2026-11-03, a month's first day), a
// month's last day (empty for hours and days), and the first and second
// counter in KiB.
struct report_usage {
	char start[14];
	char end[11];
	uint64_t kib[2];
};

// A VLAN's (or the totals') running hour, day and month, where its files
// have them.
struct report_running {
	int vlan;
	bool has[REPORT_PERIODS];
	report_usage period[REPORT_PERIODS];
};

// One line of a client file.
struct report_client {
	char ip[16];
	char mac[18]; // empty when the daemon did not know it
	uint32_t addr; // ip, host order
	uint32_t tag;
	uint64_t kib[2];
};

// Whether text is a date as the files of period name it: YYYY-MM-DD-HH for
// an hour, YYYY-MM-DD for a day and for a month (its first day).
bool report_is_date(const char *text, report_period period);

// Whether text is a MAC as the client files write it: six pairs of hex
// digits, in either case, with colons between.
bool report_is_mac(const char *text);

// Reads plain decimal digits, no sign or blank, as a number up to max.
bool report_parse_number(const char *text, uint64_t max, uint64_t *value);

// Prints "tally-report: " and the message, and a newline, to standard error.
void report_message(const char *format, ...) __attribute__((format(printf, 1, 2)));
void report_vmessage(const char *format, va_list ap) __attribute__((format(printf, 1, 0)));
