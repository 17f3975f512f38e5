// The three views: every VLAN's running periods and the totals, one
// history, one period's clients filtered, sorted and cut to the top.
#include "tools/report/views.h"

#include "tools/report/tree.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <strings.h>

namespace {

// A file that cannot be read has been reported; its periods show as missing.
report_running
read_running(const char *root, int vlan)
{
	report_running r{};
	r.vlan = vlan;
	for (int p = 0; p < REPORT_PERIODS; p++) {
		std::vector<report_usage> first;
		(void)report_read_usage(root, vlan, static_cast<report_period>(p), 1, &first);
		r.has[p] = !first.empty();
		if (r.has[p])
			r.period[p] = first[0];
	}
	return r;
}

int
show_summary(const report_options &o)
{
	std::vector<int> vlans;
	if (!report_list_vlans(o.root, &vlans)) {
		report_message("cannot read %s: %s", o.root, strerror(errno));
		return 1;
	}
	std::vector<report_running> rows;
	for (int vlan : vlans)
		rows.push_back(read_running(o.root, vlan));
	rows.push_back(read_running(o.root, REPORT_TOTALS));
	o.format->summary(o.style, rows);
	return 0;
}

int
show_history(const report_options &o)
{
	std::vector<report_usage> rows;
	if (!report_read_usage(o.root, o.vlan, o.period, SIZE_MAX, &rows))
		return 1;
	o.format->history(o.style, o.vlan, o.period, rows);
	return 0;
}

bool
kept(const report_filter &f, const report_client &c)
{
	switch (f.kind) {
	case REPORT_ADDRESSES:
		return (c.addr & f.mask) == f.addr;
	case REPORT_MAC:
		return strcasecmp(c.mac, f.mac) == 0;
	case REPORT_ALL_CLIENTS:
		break;
	}
	return true;
}

uint64_t
sort_key(report_order order, const report_client &c)
{
	return order == REPORT_BY_SUM ? c.kib[0] + c.kib[1] : c.kib[order];
}

// Largest first; clients with equal figures by address, then MAC, so that
// the order never depends on the order of the file.
bool
before(report_order order, const report_client &a, const report_client &b)
{
	uint64_t ka = sort_key(order, a), kb = sort_key(order, b);
	if (ka != kb)
		return ka > kb;
	if (a.addr != b.addr)
		return a.addr < b.addr;
	return strcmp(a.mac, b.mac) < 0;
}

int
show_clients(const report_options &o)
{
	char date[14];
	const char *period = report_period_name[o.period];
	if (o.date != nullptr && !report_has_client_date(o.root, o.vlan, o.period, o.date)) {
		report_message("VLAN %d has no client file for the %s %s", o.vlan, period, o.date);
		return 1;
	}
	if (o.date != nullptr)
		strcpy(date, o.date);
	else if (!report_newest_client_date(o.root, o.vlan, o.period, date)) {
		report_message("VLAN %d has no client files for any %s", o.vlan, period);
		return 1;
	}
	std::vector<report_client> rows;
	if (!report_read_clients(o.root, o.vlan, o.period, date, &rows))
		return 1;
	rows.erase(std::remove_if(rows.begin(), rows.end(),
				  [&](const report_client &c) { return !kept(o.filter, c); }),
		   rows.end());
	std::sort(rows.begin(), rows.end(), [&](const report_client &a, const report_client &b) {
		return before(o.order, a, b);
	});
	if (o.top > 0 && rows.size() > o.top)
		rows.erase(rows.begin() + static_cast<long>(o.top), rows.end());
	o.format->clients(o.style, o.vlan, o.period, date, rows);
	return 0;
}

} // namespace

int
report_run(const report_options &o)
{
	if (!report_is_dir(o.root)) {
		report_message("no usage tree at %s", o.root);
		return 1;
	}
	if (o.view != REPORT_SUMMARY && o.vlan != REPORT_TOTALS && !report_has_vlan(o.root, o.vlan)) {
		report_message("no VLAN %d in %s", o.vlan, o.root);
		return 1;
	}
	switch (o.view) {
	case REPORT_HISTORY:
		return show_history(o);
	case REPORT_CLIENTS:
		return show_clients(o);
	case REPORT_SUMMARY:
		break;
	}
	return show_summary(o);
}
