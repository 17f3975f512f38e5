// Per-client usage of each VLAN: hourly, daily and monthly client tables,
// fed from the sFlow agent's statistics file and published as client
// files. What the VLAN registry calls; the rest is in internal.h.
#pragma once

#include "daemon/base/clock.h"

#include <cstdint>
#include <ctime>

enum client_period : uint32_t {
	CLIENT_HOURLY = CAL_HOUR,
	CLIENT_DAILY = CAL_DAY,
	CLIENT_MONTHLY = CAL_MONTH,
};

constexpr uint32_t CLIENT_SMALL_HEAD_BITS = 1; // hash heads kept in the table itself

struct client_usage_table {
	time_t update_time;
	time_t prev_time;
	uint32_t period;
	uint32_t vlan;
	uint64_t tick_second; // this tick's second-counter deltas, bytes
	uint64_t tick_first;  // this tick's first-counter deltas, bytes
	// Clients hashed by address: heads is null until the first client, then
	// small_heads until the table outgrows them.
	uint32_t *heads;
	uint32_t head_bits;
	uint32_t count;
	uint32_t small_heads[1u << CLIENT_SMALL_HEAD_BITS];
	uint32_t unwritten; // took records since its file was last written
	// The entries in the order the client files list them, which changes
	// only when entries are added: the first ordered entries.
	uint32_t *order;
	uint32_t ordered;
};

// A VLAN's three tables, indexed by client_period. The hourly table's tick
// sums are the VLAN's traffic of the tick.
struct client_usage_set {
	client_usage_table tables[3];
};

// Three empty tables of the VLAN, or null when memory is exhausted.
client_usage_set *client_usage_set_new(int vlan);
void client_usage_set_free(client_usage_set *set);

// At start: the backup tree's client files of the hour, day and month of
// now, taken as those periods' usage so far.
void client_usage_restore(client_usage_set *set, time_t now);

// The clock of one tick and the starts of its hour, day and month.
struct client_tick {
	time_t now;
	time_t starts[3]; // indexed by client_period
};

client_tick client_tick_at(time_t now);

// Before a statistics read: clears the VLAN's tick sums and closes each
// table's period when the tick lies in a new one.
void client_usage_start_tick(client_usage_set *set, int vlan, const client_tick &tick);

// Finds a VLAN's tables for the reader, making the VLAN on first sight;
// null when memory ran out.
struct client_vlan_lookup {
	client_usage_set *(*find_or_add)(void *context, int vlan);
	void *context;
};

// The statistics file of one tick: opened (false when it cannot be), read
// into the VLANs' tables, then closed.
struct client_stats {
	int fd;
};

bool client_stats_open(client_stats *stats, const char *path);
void client_stats_read(client_stats *stats, const client_tick &tick, client_vlan_lookup lookup);
void client_stats_close(client_stats *stats);

// Trims the VLAN's client directories under root and writes its three
// client files there through tmp. False when tmp cannot be made, which ends
// the writing of client files for the tick.
bool client_usage_write_vlan(client_usage_set *set, int vlan, const char *root, const char *tmp);
