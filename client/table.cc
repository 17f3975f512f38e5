// A VLAN's client tables.
#include "client/client.h"

#include <cstdlib>

client_usage_set *
client_usage_set_new(int vlan)
{
	auto *set = static_cast<client_usage_set *>(calloc(1, sizeof(client_usage_set)));
	if (set == nullptr)
		return nullptr;
	for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++) {
		set->tables[p].period = p;
		set->tables[p].vlan = static_cast<uint32_t>(vlan);
	}
	return set;
}

void
client_usage_set_free(client_usage_set *set)
{
	free(set);
}

// Not built yet: tables start empty.
void read_client_backup_usage(const struct tm *, client_usage_table *, int, int) {}
