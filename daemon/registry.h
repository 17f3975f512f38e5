// The VLAN registry: the list of VLANs seen so far, each with its usage
// record and client tables, the all-VLAN totals, the directory layout, and
// the per-tick update cycle and backup pass over them.
#pragma once

#include "client/client.h"
#include "totals/totals.h"
#include "usage/usage.h"

#include <ctime>

struct sw_vlan_entry {
	int32_t vlan;
	uint64_t tick_bytes[2]; // cleared by each statistics read
	wu_usage *usage;
	client_usage_set *clients;
	sw_vlan_entry *next; // circular through the registry's sentinel
	sw_vlan_entry *prev;
};

// The first entry of each VLAN number, in pages of 256 numbers made on
// first use, so finding a record's VLAN costs the same for any list length.
constexpr unsigned VLAN_PAGE_BITS = 8;
constexpr unsigned VLAN_PAGES = 65536 >> VLAN_PAGE_BITS;

struct sw_usage_registry {
	time_t prev_time;
	time_t now;
	sw_vlan_entry *vlans; // sentinel: no VLAN, links to itself when empty
	wu_totals totals;
	sw_vlan_entry **vlan_pages[VLAN_PAGES];
};

// Builds the registry from the backup tree and recreates the run-time tree;
// the backup tree is consumed. Null only when the registry itself cannot be
// allocated.
sw_usage_registry *tally_sw_usage_init();

// Frees a registry and everything it owns but the client entries' pool.
// The daemon never does: it keeps its registry for life; a fuzzer does.
void tally_sw_registry_free(sw_usage_registry *registry);

// One tick: statistics, usage records, history and totals files, client files.
void tally_sw_usage_update(sw_usage_registry *registry);

// One backup pass into the backup tree over every VLAN of the list.
void tally_sw_backup_usage(sw_vlan_entry *vlans);

void init_usage_file_list();
