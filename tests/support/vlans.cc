// VLANs without the daemon's registry, for tests and benchmarks.
#include "tests/support/vlans.h"

namespace {

client_usage_set *
lookup(void *context, int vlan)
{
	return static_cast<test_vlans *>(context)->find_or_add(vlan);
}

} // namespace

test_vlans::~test_vlans()
{
	for (auto &numbered : by_number)
		client_usage_set_free(numbered.second);
}

client_usage_set *
test_vlans::find_or_add(int vlan)
{
	client_usage_set *&set = by_number[vlan];
	if (set == nullptr) {
		set = client_usage_set_new(vlan);
		if (set != nullptr)
			order.push_back(vlan);
	}
	return set;
}

bool
test_vlans::read_stats(const char *path, time_t now)
{
	client_stats stats;
	if (!client_stats_open(&stats, path))
		return false;
	client_tick tick = client_tick_at(now);
	for (int vlan : order)
		client_usage_start_tick(find(vlan), vlan, tick);
	client_stats_read(&stats, tick, {lookup, this});
	client_stats_close(&stats);
	return true;
}

bool
test_vlans::write_files(const char *root, const char *tmp)
{
	for (int vlan : order)
		if (!client_usage_write_vlan(find(vlan), vlan, root, tmp))
			return false;
	return true;
}
