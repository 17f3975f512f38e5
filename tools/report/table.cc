// The aligned table for a terminal: each column as wide as its widest
// cell, amounts right-aligned in binary units or in exact KiB.
#include "tools/report/format.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr int max_columns = 8;
constexpr int gap = 2; // spaces between columns
constexpr uint64_t unit_step = 1024;
const char *const units[] = {"KiB", "MiB", "GiB", "TiB"};
constexpr int unit_count = sizeof units / sizeof units[0];

struct cell {
	char text[64];
};

// Cells row by row; the widths once measured.
struct grid {
	int columns;
	const char *align; // 'l' or 'r' for each column
	std::vector<cell> cells;
	int width[max_columns];
};

__attribute__((format(printf, 2, 3))) void
add(grid *g, const char *format, ...)
{
	cell c;
	va_list ap;
	va_start(ap, format);
	vsnprintf(c.text, sizeof c.text, format, ap);
	va_end(ap);
	g->cells.push_back(c);
}

// Below 1 MiB in KiB, else with two decimals, rounded, in the largest unit
// that keeps the figure under 1024 (TiB takes everything above).
void
add_amount(grid *g, const report_style &style, uint64_t kib)
{
	if (style.exact_kib || kib < unit_step) {
		add(g, "%llu KiB", static_cast<unsigned long long>(kib));
		return;
	}
	int unit = 0;
	uint64_t divisor = 1, hundredths;
	do {
		unit++;
		divisor *= unit_step;
		hundredths = (kib * 100 + divisor / 2) / divisor;
	} while (unit + 1 < unit_count && hundredths >= unit_step * 100);
	add(g, "%llu.%02llu %s", static_cast<unsigned long long>(hundredths / 100),
	    static_cast<unsigned long long>(hundredths % 100), units[unit]);
}

void
add_amounts(grid *g, const report_style &style, const uint64_t kib[2], bool sum)
{
	add_amount(g, style, kib[0]);
	add_amount(g, style, kib[1]);
	if (sum)
		add_amount(g, style, kib[0] + kib[1]);
}

void
add_names(grid *g, const report_style &style)
{
	add(g, "%s", style.names[0]);
	add(g, "%s", style.names[1]);
}

void
measure(grid *g)
{
	for (int c = 0; c < g->columns; c++)
		g->width[c] = 0;
	for (size_t i = 0; i < g->cells.size(); i++) {
		int n = static_cast<int>(strlen(g->cells[i].text));
		int &width = g->width[i % g->columns];
		if (n > width)
			width = n;
	}
}

// Trailing blanks are dropped, so an empty last column leaves none.
void
print_rows(const grid &g)
{
	char line[1024]; // max_columns of at most 63 characters and a gap each
	for (size_t first = 0; first < g.cells.size(); first += g.columns) {
		int at = 0;
		for (int c = 0; c < g.columns; c++)
			at += snprintf(line + at, sizeof line - at, g.align[c] == 'l' ? "%*s%-*s" : "%*s%*s",
				       c == 0 ? 0 : gap, "", g.width[c], g.cells[first + c].text);
		while (at > 0 && line[at - 1] == ' ')
			at--;
		printf("%.*s\n", at, line);
	}
}

// Above the VLAN rows, each running period over its pair of columns. A
// row whose running period is another (a VLAN whose files stand still)
// says so at its end.
void
table_summary(const report_style &style, const std::vector<report_running> &rows)
{
	grid g{2 * REPORT_PERIODS + 2, "lrrrrrrl", {}, {}};
	add(&g, "VLAN");
	for (int p = 0; p < REPORT_PERIODS; p++)
		add_names(&g, style);
	add(&g, "%s", "");
	const char *running[REPORT_PERIODS] = {};
	for (const report_running &r : rows)
		for (int p = 0; p < REPORT_PERIODS; p++)
			if (running[p] == nullptr && r.has[p])
				running[p] = r.period[p].start;
	for (const report_running &r : rows) {
		if (r.vlan == REPORT_TOTALS)
			add(&g, "total");
		else
			add(&g, "%d", r.vlan);
		char note[64] = "";
		size_t at = 0;
		for (int p = 0; p < REPORT_PERIODS; p++) {
			if (!r.has[p]) {
				add(&g, "-");
				add(&g, "-");
				continue;
			}
			add_amounts(&g, style, r.period[p].kib, false);
			if (strcmp(r.period[p].start, running[p]) != 0 && at < sizeof note)
				at += snprintf(note + at, sizeof note - at, "%s%s %s", at == 0 ? "" : ", ",
					       report_period_name[p], r.period[p].start);
		}
		add(&g, "%s", note);
	}
	measure(&g);

	char line[1024];
	int at = snprintf(line, sizeof line, "%*s", g.width[0], "");
	for (int p = 0; p < REPORT_PERIODS; p++) {
		char heading[32];
		snprintf(heading, sizeof heading, "%s%s%s", report_period_name[p], running[p] ? " " : "",
			 running[p] ? running[p] : "");
		int &first = g.width[1 + 2 * p];
		int span = first + gap + g.width[2 + 2 * p];
		int n = static_cast<int>(strlen(heading));
		if (n > span) {
			first += n - span;
			span = n;
		}
		at += snprintf(line + at, sizeof line - at, "%*s%*s", gap, "", span, heading);
	}
	puts(line);
	print_rows(g);
}

void
table_history(const report_style &style, int vlan, report_period period,
	      const std::vector<report_usage> &rows)
{
	if (vlan == REPORT_TOTALS)
		printf("All VLANs, %s\n", report_history_name[period]);
	else
		printf("VLAN %d, %s\n", vlan, report_history_name[period]);
	bool month = period == REPORT_MONTH;
	grid g{month ? 5 : 4, month ? "llrrr" : "lrrr", {}, {}};
	if (month) {
		add(&g, "from");
		add(&g, "to");
	} else {
		add(&g, "%s", report_period_name[period]);
	}
	add_names(&g, style);
	add(&g, "sum");
	for (const report_usage &u : rows) {
		add(&g, "%s", u.start);
		if (month)
			add(&g, "%s", u.end);
		add_amounts(&g, style, u.kib, true);
	}
	measure(&g);
	print_rows(g);
}

void
table_clients(const report_style &style, int vlan, report_period period, const char *start,
	      const std::vector<report_client> &rows)
{
	printf("VLAN %d, %s %s\n", vlan, report_period_name[period], start);
	grid g{6, "llrrrr", {}, {}};
	add(&g, "address");
	add(&g, "MAC");
	add(&g, "tag");
	add_names(&g, style);
	add(&g, "sum");
	for (const report_client &c : rows) {
		add(&g, "%s", c.ip);
		add(&g, "%s", c.mac[0] == '\0' ? "-" : c.mac);
		add(&g, "%u", static_cast<unsigned>(c.tag));
		add_amounts(&g, style, c.kib, true);
	}
	measure(&g);
	print_rows(g);
}

} // namespace

const report_format report_table = {table_summary, table_history, table_clients};
