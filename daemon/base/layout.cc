// The one path builder of the run-time and backup trees.
#include "daemon/base/layout.h"

#include <cstdio>

const char *const sw_usage_dir[3] = {
	"sw_client/sw_client_usage_hourly",
	"sw_client/sw_client_usage_daily",
	"sw_client/sw_client_usage_monthly",
};

namespace {

constexpr int vlans_per_bucket = 100; // a bucket keeps directories small

bool
fits(int n, size_t size)
{
	return n >= 0 && static_cast<size_t>(n) < size;
}

} // namespace

bool
layout_vlan_path(char *path, size_t size, const char *root, int vlan, const char *dir,
		 const char *name)
{
	int bucket = vlan % vlans_per_bucket;
	int n = name == nullptr
			? snprintf(path, size, "%s/%d/%d/%s", root, bucket, vlan, dir)
			: snprintf(path, size, "%s/%d/%d/%s/%s", root, bucket, vlan, dir, name);
	return fits(n, size);
}

bool
layout_root_path(char *path, size_t size, const char *root, const char *name)
{
	return fits(snprintf(path, size, "%s/%s", root, name), size);
}
