// Every absolute path and command line the daemon uses, so its whole
// footprint on the file system can be read in one place. The names inside
// the run-time and backup trees are in layout.h.
#pragma once

// Platform inputs.
constexpr char WAN_COUNT_FILE[] = "/etc/ZERIC_wanno";
constexpr char CLOCK_MARKER[] = "/var/run/ostra/time_initialized";
constexpr char STATS_FILE[] = "/var/run/sflow/stat.bin";

// Restore handshake with the platform: the marker directory its restore
// command leaves, and the command itself.
constexpr char RESTORE_MARKER_DIR[] = "/tmp/tally_backup";
constexpr char RESTORE_COMMAND[] = "load_tally_data 1";
constexpr char SAVECONFIG_COMMAND[] = "/usr/local/ostra/bin/saveconfig";

constexpr char PID_FILE[] = "/var/run/tally.pid";

// Stale per-WAN history files removed at start (printf pattern, WAN number).
constexpr const char *STALE_WAN_FILES[] = {
	"/var/run/ostra/wan%d/usage_history.hourly",
	"/var/run/ostra/wan%d/usage_history.daily",
	"/var/run/ostra/wan%d/usage_history.monthly",
	"/var/run/ostra/wan%d/usage_history.billing",
};

// Obsolete client directories of earlier firmware, removed at start.
constexpr const char *OBSOLETE_CLIENT_DIR_COMMANDS[] = {
	"rm -rf /var/run/ostra/sw_client_usage_hourly",
	"rm -rf /var/run/ostra/sw_client_usage_daily",
	"rm -rf /var/run/ostra/sw_client_usage_monthly",
};

// Run-time tree read by the management interface, and the backup tree
// that the configuration-saving command persists across reboots.
constexpr char RUN_ROOT[] = "/var/run/ostra/tally_sw_usage";
constexpr char BACKUP_ROOT[] = "/tmp/tally_sw_usage";

// Every file is written here first and renamed into place.
constexpr char TMP_FILE[] = "/tmp/tally.tmp";
constexpr char TMP_CLIENT_FILE[] = "/tmp/tally_client.tmp";
