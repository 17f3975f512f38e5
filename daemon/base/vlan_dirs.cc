// A VLAN's directories, made with recursive_mkdir and copied with the
// system's cp; every command's result is ignored.
#include "daemon/base/vlan_dirs.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

#include <cstdio>
#include <cstdlib>

void
create_vlan_run_dirs(int vlan)
{
	char path[256];
	layout_vlan_path(path, sizeof path, RUN_ROOT, vlan, VLAN_DIR);
	(void)recursive_mkdir(path);
	layout_vlan_path(path, sizeof path, RUN_ROOT, vlan, CLIENT_DIR);
	(void)recursive_mkdir(path);
	for (const char *dir : sw_usage_dir) {
		layout_vlan_path(path, sizeof path, RUN_ROOT, vlan, dir);
		(void)recursive_mkdir(path);
	}
}

int
wan_usage_create_backup_dir_ex(int, int kind, int vlan)
{
	constexpr int client_kind = 4;
	char path[128];
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, vlan,
			 kind == client_kind ? CLIENT_DIR : VLAN_DIR);
	return recursive_mkdir(path);
}

// The same copy runs three times, as on every appliance in the field: the
// first run of a pass creates a missing target; once the target exists, a
// copy lands in a nested sw_client inside it. Kept for compatibility.
int
backup_client_dirs(int vlan)
{
	char source[256], target[256], command[1024];
	layout_vlan_path(source, sizeof source, RUN_ROOT, vlan, CLIENT_DIR);
	layout_vlan_path(target, sizeof target, BACKUP_ROOT, vlan, CLIENT_DIR);
	snprintf(command, sizeof command, "cp -r %s/ %s/", source, target);
	int status = 0;
	for (int i = 0; i < 3; i++)
		status = system(command);
	return status;
}

// Only the client files are copied: the VLAN's own history files are
// regenerated from its restored record on the first tick. The platform's
// copy has always been given these paths with a doubled leading slash.
void
restore_client_dirs(int vlan)
{
	for (const char *dir : sw_usage_dir) {
		char source[256], target[256], command[1024];
		layout_vlan_path(source, sizeof source, BACKUP_ROOT, vlan, dir);
		layout_vlan_path(target, sizeof target, RUN_ROOT, vlan, dir);
		(void)recursive_mkdir(target);
		snprintf(command, sizeof command, "cp -r /%s/* /%s/", source, target);
		(void)system(command);
	}
}
