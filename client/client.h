// Per-client usage of each VLAN: the statistics reader, the hourly, daily
// and monthly client tables, and the client files with their retention.
#pragma once

#include <cstdint>
#include <ctime>

struct sw_vlan_entry;

enum client_period : uint32_t {
	CLIENT_HOURLY = 0,
	CLIENT_DAILY = 1,
	CLIENT_MONTHLY = 2,
};

struct client_usage_table {
	time_t update_time;
	time_t prev_time;
	uint32_t period;
	uint32_t vlan;
	uint64_t tick_second; // this tick's second-counter deltas, bytes
	uint64_t tick_first;  // this tick's first-counter deltas, bytes
};

// A VLAN's three tables, indexed by client_period.
struct client_usage_set {
	client_usage_table tables[3];
};

// Three empty tables of the VLAN, or null when memory is exhausted.
client_usage_set *client_usage_set_new(int vlan);
void client_usage_set_free(client_usage_set *set);

// Loads the backup tree's client file of the period containing when into
// table; mode 1 takes its figures as the period's usage, mode 0 as
// baselines only.
void read_client_backup_usage(const struct tm *when, client_usage_table *table,
			      int period, int mode);

// Reads the statistics file into the client tables of every VLAN, creating
// the VLANs met for the first time.
void client_usage_read_stats(sw_vlan_entry *vlans, time_t now);

// Writes and trims the client files of every VLAN.
void client_usage_write_files(sw_vlan_entry *vlans);
