// The layout of the run-time and backup trees: a VLAN's files lie under
// <root>/<VLAN id modulo 100>/<VLAN id>/, the totals files in the run-time
// root. Every name inside the trees is here, and one builder makes the
// paths of both trees.
#pragma once

#include <cstddef>

// A VLAN's directories.
constexpr char VLAN_DIR[] = "sw_vlan";     // history, display and backup CSVs
constexpr char CLIENT_DIR[] = "sw_client"; // client files, by period below it

// Client sub-directories of a VLAN, indexed by period: hourly, daily, monthly.
extern const char *const sw_usage_dir[3];

// A VLAN's history files (closed periods) and display files (the running
// period on top of its history), in the run-time tree.
constexpr char HOURLY_HISTORY[] = "usage_history.hourly";
constexpr char DAILY_HISTORY[] = "usage_history.daily";
constexpr char MONTHLY_HISTORY[] = "usage_history.monthly";
constexpr char HOURLY_DISPLAY[] = "sw_usage_hourly.csv";
constexpr char DAILY_DISPLAY[] = "sw_usage_daily.csv";
constexpr char MONTHLY_DISPLAY[] = "sw_usage_monthly.csv";

// A VLAN's backup CSVs, in the backup tree.
constexpr char HOURLY_BACKUP[] = "tally.hourly.csv";
constexpr char DAILY_BACKUP[] = "tally.daily.csv";
constexpr char MONTHLY_BACKUP[] = "tally.monthly.csv";

// The all-VLAN totals, in the run-time root.
constexpr char HOURLY_TOTALS[] = "sw_usage_hourly_total.csv";
constexpr char DAILY_TOTALS[] = "sw_usage_daily_total.csv";
constexpr char MONTHLY_TOTALS[] = "sw_usage_monthly_total.csv";

// <root>/<vlan % 100>/<vlan>/<dir>, and /<name> behind it unless name is
// null. Returns false when the path does not fit in size bytes.
bool layout_vlan_path(char *path, size_t size, const char *root, int vlan, const char *dir,
		      const char *name = nullptr);

// <root>/<name>, for the totals files.
bool layout_root_path(char *path, size_t size, const char *root, const char *name);
