// A VLAN's backup CSVs read back at start, and everything the daemon then
// writes from what was restored: history, display and backup files, and a
// monthly rollover over the restored month. Runs where the daemon's own
// paths are a scratch tree (tools/fuzz runs it in a sandbox).
#include "backup/backup.h"
#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"
#include "fuzz/fuzz.h"
#include "usage/usage.h"

#include <cstdlib>
#include <string>

namespace {

constexpr int vlan = 5;

std::string
backup_file(const char *name)
{
	char path[256];
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, vlan, VLAN_DIR, name);
	return path;
}

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	std::vector<std::string> parts = fuzz_sections(data, size, 3);
	(void)recursive_remove(BACKUP_ROOT);
	(void)recursive_remove(RUN_ROOT);
	fuzz_write_file(backup_file(HOURLY_BACKUP), parts[0]);
	fuzz_write_file(backup_file(DAILY_BACKUP), parts[1]);
	fuzz_write_file(backup_file(MONTHLY_BACKUP), parts[2]);
	char dir[256];
	layout_vlan_path(dir, sizeof dir, RUN_ROOT, vlan, VLAN_DIR);
	(void)recursive_mkdir(dir);

	wu_usage *wu = wu_new();
	wu->vlan = vlan;
	read_backup_ex(wu, 0, 0, vlan);
	wu_update_time(wu, 1781184000);
	wu_monthly_rollover(wu);
	wu_save_hourly(wu);
	wu_save_daily(wu);
	wu_save_monthly(wu);
	(void)create_backup_hourly(wu);
	(void)create_backup_daily(wu);
	(void)create_backup_monthly(wu);
	free(wu);
	return 0;
}
