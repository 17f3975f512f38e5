// CSV: a header line naming the columns, then one line per row, amounts in
// KiB. A period that a file does not have leaves its fields empty.
#include "tools/report/format.h"

#include <cstdio>

namespace {

void
print_kib(const uint64_t kib[2])
{
	printf(",%llu,%llu", static_cast<unsigned long long>(kib[0]),
	       static_cast<unsigned long long>(kib[1]));
}

void
csv_summary(const report_style &style, const std::vector<report_running> &rows)
{
	fputs("vlan", stdout);
	for (int p = 0; p < REPORT_PERIODS; p++) {
		const char *name = report_period_name[p];
		printf(",%s", name);
		if (p == REPORT_MONTH)
			printf(",%s_end", name);
		printf(",%s_%s_kib,%s_%s_kib", name, style.names[0], name, style.names[1]);
	}
	putchar('\n');
	for (const report_running &r : rows) {
		if (r.vlan == REPORT_TOTALS)
			fputs("total", stdout);
		else
			printf("%d", r.vlan);
		for (int p = 0; p < REPORT_PERIODS; p++) {
			const report_usage &u = r.period[p];
			if (!r.has[p])
				fputs(p == REPORT_MONTH ? ",,,," : ",,,", stdout);
			else if (p == REPORT_MONTH)
				printf(",%s,%s", u.start, u.end);
			else
				printf(",%s", u.start);
			if (r.has[p])
				print_kib(u.kib);
		}
		putchar('\n');
	}
}

void
csv_history(const report_style &style, int, report_period period,
	    const std::vector<report_usage> &rows)
{
	printf("%s%s,%s_kib,%s_kib\n", report_period_name[period], period == REPORT_MONTH ? ",end" : "",
	       style.names[0], style.names[1]);
	for (const report_usage &u : rows) {
		printf("%s%s%s", u.start, period == REPORT_MONTH ? "," : "", u.end);
		print_kib(u.kib);
		putchar('\n');
	}
}

void
csv_clients(const report_style &style, int, report_period, const char *,
	    const std::vector<report_client> &rows)
{
	printf("ip,%s_kib,%s_kib,mac,tag\n", style.names[0], style.names[1]);
	for (const report_client &c : rows) {
		fputs(c.ip, stdout);
		print_kib(c.kib);
		printf(",%s,%u\n", c.mac, static_cast<unsigned>(c.tag));
	}
}

} // namespace

const report_format report_csv = {csv_summary, csv_history, csv_clients};
