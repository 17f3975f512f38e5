// The Prometheus text format, for a node exporter's textfile collector.
// Every figure is a gauge in bytes (the files count whole KiB), one sample
// per counter, which the label counter names. The totals have metrics of
// their own, so that summing a VLAN metric never counts anything twice.
#include "tools/report/format.h"

#include <cstdio>

namespace {

constexpr unsigned long long bytes_per_kib = 1024;

struct family {
	const char *vlan;
	const char *totals;
	const char *help; // completed by "a VLAN" or "all VLANs"
};

constexpr family running_family = {"tally_vlan_usage_bytes", "tally_total_usage_bytes",
				   "in the running hour, day and month"};
constexpr family history_family = {"tally_vlan_history_bytes", "tally_total_history_bytes",
				   "by hour, day or month, the running ones included"};
constexpr char client_metric[] = "tally_client_usage_bytes";

// The metric of a VLAN or the totals, after its HELP and TYPE lines.
const char *
open_family(const family &f, int vlan)
{
	bool totals = vlan == REPORT_TOTALS;
	const char *metric = totals ? f.totals : f.vlan;
	printf("# HELP %s Traffic of %s %s.\n# TYPE %s gauge\n", metric, totals ? "all VLANs" : "a VLAN",
	       f.help, metric);
	return metric;
}

// vlan="N", and a comma, or nothing for the totals.
void
format_vlan(char *label, size_t size, int vlan)
{
	if (vlan == REPORT_TOTALS)
		label[0] = '\0';
	else
		snprintf(label, size, "vlan=\"%d\",", vlan);
}

// labels: every label of the sample but counter, each followed by a comma.
void
print_samples(const report_style &style, const char *metric, const char *labels,
	      const uint64_t kib[2])
{
	for (int i = 0; i < 2; i++)
		printf("%s{%scounter=\"%s\"} %llu\n", metric, labels, style.names[i],
		       static_cast<unsigned long long>(kib[i]) * bytes_per_kib);
}

void
prometheus_summary(const report_style &style, const std::vector<report_running> &rows)
{
	const char *metric = open_family(running_family, 0);
	for (const report_running &r : rows) {
		if (r.vlan == REPORT_TOTALS)
			metric = open_family(running_family, REPORT_TOTALS);
		for (int p = 0; p < REPORT_PERIODS; p++) {
			char vlan[24], labels[64];
			if (!r.has[p])
				continue;
			format_vlan(vlan, sizeof vlan, r.vlan);
			snprintf(labels, sizeof labels, "%speriod=\"%s\",", vlan, report_period_name[p]);
			print_samples(style, metric, labels, r.period[p].kib);
		}
	}
}

void
prometheus_history(const report_style &style, int vlan, report_period period,
		   const std::vector<report_usage> &rows)
{
	const char *metric = open_family(history_family, vlan);
	char vlan_label[24];
	format_vlan(vlan_label, sizeof vlan_label, vlan);
	for (const report_usage &u : rows) {
		char labels[96];
		snprintf(labels, sizeof labels, "%speriod=\"%s\",start=\"%s\",", vlan_label,
			 report_period_name[period], u.start);
		print_samples(style, metric, labels, u.kib);
	}
}

void
prometheus_clients(const report_style &style, int vlan, report_period period, const char *start,
		   const std::vector<report_client> &rows)
{
	printf("# HELP %s Traffic of a client of a VLAN in one hour, day or month.\n# TYPE %s gauge\n",
	       client_metric, client_metric);
	for (const report_client &c : rows) {
		char labels[160];
		snprintf(labels, sizeof labels,
			 "vlan=\"%d\",period=\"%s\",start=\"%s\",ip=\"%s\",mac=\"%s\",tag=\"%u\",", vlan,
			 report_period_name[period], start, c.ip, c.mac, static_cast<unsigned>(c.tag));
		print_samples(style, client_metric, labels, c.kib);
	}
}

} // namespace

const report_format report_prometheus = {prometheus_summary, prometheus_history,
					 prometheus_clients};
