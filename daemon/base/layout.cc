// The one path builder of the run-time and backup trees.
#include "daemon/base/layout.h"

#include "daemon/base/text.h"

#include <cstring>
#include <initializer_list>

const char *const sw_usage_dir[3] = {
	"sw_client/sw_client_usage_hourly",
	"sw_client/sw_client_usage_daily",
	"sw_client/sw_client_usage_monthly",
};

namespace {

constexpr int vlans_per_bucket = 100; // a bucket keeps directories small

// Appends text as far as it fits in size bytes; false when not all of it fits.
bool
append(char *path, size_t size, size_t *used, const char *text)
{
	size_t n = strlen(text);
	size_t room = size - 1 - *used;
	size_t taken = n < room ? n : room;
	memcpy(path + *used, text, taken);
	*used += taken;
	path[*used] = '\0';
	return n <= room;
}

// The parts with a "/" between each two, as snprintf would write them.
bool
join(char *path, size_t size, std::initializer_list<const char *> parts)
{
	size_t used = 0;
	bool first = true;
	for (const char *part : parts) {
		if ((!first && !append(path, size, &used, "/")) || !append(path, size, &used, part))
			return false;
		first = false;
	}
	return true;
}

} // namespace

bool
layout_vlan_path(char *path, size_t size, const char *root, int vlan, const char *dir,
		 const char *name)
{
	char bucket[TEXT_FIELD_MAX], number[TEXT_FIELD_MAX];
	*text_i64(bucket, vlan % vlans_per_bucket) = '\0';
	*text_i64(number, vlan) = '\0';
	if (name == nullptr)
		return join(path, size, {root, bucket, number, dir});
	return join(path, size, {root, bucket, number, dir, name});
}

bool
layout_root_path(char *path, size_t size, const char *root, const char *name)
{
	return join(path, size, {root, name});
}
