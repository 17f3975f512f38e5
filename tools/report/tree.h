// Reading a run-time tree: the VLANs it holds, their period and client
// files, and the totals. Nothing is ever written.
#pragma once

#include "tools/report/report.h"

#include <cstddef>
#include <vector>

bool report_is_dir(const char *path);

// The VLANs of the tree at root, ascending: those with a directory
// <root>/<VLAN % 100>/<VLAN>/sw_vlan. False, with errno set, when root
// cannot be read.
bool report_list_vlans(const char *root, std::vector<int> *vlans);

bool report_has_vlan(const char *root, int vlan);

// Appends the first max lines of a VLAN's period file, the running period
// first, or for REPORT_TOTALS of the all-VLAN totals file. A malformed line
// is left out with a warning naming the file and the line. False, with a
// message, when the file cannot be read.
bool report_read_usage(const char *root, int vlan, report_period period, size_t max,
		       std::vector<report_usage> *rows);

// The date of a VLAN's newest client file for period. False when it has none.
bool report_newest_client_date(const char *root, int vlan, report_period period, char date[14]);

bool report_has_client_date(const char *root, int vlan, report_period period, const char *date);

// Appends the lines of a VLAN's client file for period and date, malformed
// ones left out as above. False, with a message, when it cannot be read.
bool report_read_clients(const char *root, int vlan, report_period period, const char *date,
			 std::vector<report_client> *rows);
