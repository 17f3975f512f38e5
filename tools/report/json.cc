// JSON: one object per run, numbers as integers of KiB, dates as the files
// write them. Its keys do not change with --counters, which names the two
// counters in "counters" instead.
#include "tools/report/format.h"

#include <cstdio>

namespace {

void
print_counters(const report_style &style)
{
	printf("  \"counters\": [\"%s\", \"%s\"],\n", style.names[0], style.names[1]);
}

void
print_vlan(int vlan)
{
	if (vlan == REPORT_TOTALS)
		fputs("  \"vlan\": null,\n", stdout);
	else
		printf("  \"vlan\": %d,\n", vlan);
}

void
print_usage(const report_usage &u)
{
	printf("{\"start\": \"%s\", ", u.start);
	if (u.end[0] != '\0')
		printf("\"end\": \"%s\", ", u.end);
	printf("\"first_kib\": %llu, \"second_kib\": %llu}", static_cast<unsigned long long>(u.kib[0]),
	       static_cast<unsigned long long>(u.kib[1]));
}

void
print_running(const report_running &r)
{
	for (int p = 0; p < REPORT_PERIODS; p++) {
		printf("%s\"%s\": ", p == 0 ? "" : ", ", report_period_name[p]);
		if (r.has[p])
			print_usage(r.period[p]);
		else
			fputs("null", stdout);
	}
}

// The elements of an array, one a line, and its closing bracket.
const char *
separator(size_t i, size_t n)
{
	return i + 1 < n ? ",\n" : "\n  ";
}

void
json_summary(const report_style &style, const std::vector<report_running> &rows)
{
	fputs("{\n  \"view\": \"summary\",\n", stdout);
	print_counters(style);
	size_t vlans = rows.size() - 1; // the totals come last
	fputs(vlans == 0 ? "  \"vlans\": [" : "  \"vlans\": [\n", stdout);
	for (size_t i = 0; i < vlans; i++) {
		printf("    {\"vlan\": %d, ", rows[i].vlan);
		print_running(rows[i]);
		printf("}%s", separator(i, vlans));
	}
	fputs("],\n  \"total\": {", stdout);
	print_running(rows.back());
	fputs("}\n}\n", stdout);
}

void
json_history(const report_style &style, int vlan, report_period period,
	     const std::vector<report_usage> &rows)
{
	printf("{\n  \"view\": \"%s\",\n", report_history_name[period]);
	print_vlan(vlan);
	print_counters(style);
	fputs(rows.empty() ? "  \"periods\": [" : "  \"periods\": [\n", stdout);
	for (size_t i = 0; i < rows.size(); i++) {
		fputs("    ", stdout);
		print_usage(rows[i]);
		fputs(separator(i, rows.size()), stdout);
	}
	fputs("]\n}\n", stdout);
}

void
json_clients(const report_style &style, int vlan, report_period period, const char *start,
	     const std::vector<report_client> &rows)
{
	fputs("{\n  \"view\": \"clients\",\n", stdout);
	print_vlan(vlan);
	printf("  \"period\": \"%s\",\n  \"start\": \"%s\",\n", report_period_name[period], start);
	print_counters(style);
	fputs(rows.empty() ? "  \"clients\": [" : "  \"clients\": [\n", stdout);
	for (size_t i = 0; i < rows.size(); i++) {
		const report_client &c = rows[i];
		printf("    {\"ip\": \"%s\", \"mac\": ", c.ip);
		if (c.mac[0] == '\0')
			fputs("null", stdout);
		else
			printf("\"%s\"", c.mac);
		printf(", \"tag\": %u, \"first_kib\": %llu, \"second_kib\": %llu}%s",
		       static_cast<unsigned>(c.tag), static_cast<unsigned long long>(c.kib[0]),
		       static_cast<unsigned long long>(c.kib[1]), separator(i, rows.size()));
	}
	fputs("]\n}\n", stdout);
}

} // namespace

const report_format report_json = {json_summary, json_history, json_clients};
