// The output formats of tally-report: an aligned table, JSON, CSV and the
// Prometheus text format, each with one function per view. They print to
// standard output and take the figures as read, in the order given.
#pragma once

#include "tools/report/report.h"

#include <cstddef>
#include <vector>

constexpr size_t REPORT_NAME_MAX = 15;

struct report_style {
	char names[2][REPORT_NAME_MAX + 1]; // of the first and the second counter
	bool exact_kib; // tables: every amount in KiB rather than in the largest binary unit
};

struct report_format {
	// Every VLAN of the tree, then the totals (vlan REPORT_TOTALS).
	void (*summary)(const report_style &style, const std::vector<report_running> &rows);
	// The periods of a VLAN or of the totals, the running one first.
	void (*history)(const report_style &style, int vlan, report_period period,
			const std::vector<report_usage> &rows);
	// A VLAN's clients in the period that starts at start.
	void (*clients)(const report_style &style, int vlan, report_period period, const char *start,
			const std::vector<report_client> &rows);
};

extern const report_format report_table;
extern const report_format report_json;
extern const report_format report_csv;
extern const report_format report_prometheus;
