// tally-report's command line: the view, its VLAN and period, and how the
// figures are shown.
#pragma once

#include "tools/report/format.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

enum report_view { REPORT_SUMMARY, REPORT_HISTORY, REPORT_CLIENTS };

// The clients' order, largest first: by the first counter, the second, or
// their sum.
enum report_order { REPORT_BY_FIRST, REPORT_BY_SECOND, REPORT_BY_SUM };

enum report_filter_kind { REPORT_ALL_CLIENTS, REPORT_ADDRESSES, REPORT_MAC };

// The clients that --client keeps: addresses whose masked bits are addr,
// or one MAC, compared without regard to case.
struct report_filter {
	report_filter_kind kind;
	uint32_t addr;
	uint32_t mask;
	char mac[18];
};

struct report_options {
	const char *root;
	report_view view;
	int vlan;             // REPORT_TOTALS for the history of all VLANs
	report_period period; // of the history or of the clients
	const char *date;     // the clients' period, or null for the newest
	const report_format *format;
	report_style style;
	report_order order;
	size_t top;           // 0: every client
	report_filter filter;
};

enum report_parse_result { REPORT_PARSE_RUN, REPORT_PARSE_HELP, REPORT_PARSE_ERROR };

// Fills o from the command line. A usage error has been reported when the
// result is REPORT_PARSE_ERROR.
report_parse_result report_parse_options(int argc, char **argv, report_options *o);

void report_print_usage(FILE *f);
