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

struct sw_usage_registry {
	time_t prev_time;
	time_t now;
	sw_vlan_entry *vlans; // sentinel: no VLAN, links to itself when empty
	wu_totals totals;
};

// Client sub-directories of a VLAN, indexed by client_period.
extern const char *const sw_usage_dir[3];

// Builds the registry from the backup tree and recreates the run-time tree;
// the backup tree is consumed. Null only when the registry itself cannot be
// allocated.
sw_usage_registry *tally_sw_usage_init();

// One tick: statistics, usage records, history and totals files, client files.
void tally_sw_usage_update(sw_usage_registry *registry);

// One backup pass into the backup tree over every VLAN of the list.
void tally_sw_backup_usage(sw_vlan_entry *vlans);

// A VLAN entry with its usage record and client tables, not yet in any list;
// null when memory is exhausted.
sw_vlan_entry *tally_sw_vlan_new(int vlan);

// Appends entry at the tail of the list.
void tally_sw_vlan_append(sw_vlan_entry *vlans, sw_vlan_entry *entry);

// The VLAN's run-time directories.
void create_vlan_run_dirs(int vlan);

// Makes the VLAN's backup client directory when kind is 4, else its backup
// VLAN directory; returns recursive_mkdir's result.
int wan_usage_create_backup_dir_ex(int ignored, int kind, int vlan);

// Copies the VLAN's run-time client directory into the backup tree; returns
// the copy command's status.
int backup_client_dirs(int vlan);

void init_usage_file_list();
