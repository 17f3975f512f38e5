// A VLAN's directories in the run-time and backup trees: made, and its
// client files copied from one tree to the other.
#pragma once

// The VLAN's run-time directories: its own, and its client directory with
// one child per period.
void create_vlan_run_dirs(int vlan);

// Makes the VLAN's backup client directory when kind is 4, else its backup
// VLAN directory; returns recursive_mkdir's result.
int wan_usage_create_backup_dir_ex(int ignored, int kind, int vlan);

// Copies the VLAN's run-time client directory into the backup tree; returns
// the copy command's status.
int backup_client_dirs(int vlan);

// At start: copies the VLAN's client files of the backup tree into the
// run-time tree.
void restore_client_dirs(int vlan);
