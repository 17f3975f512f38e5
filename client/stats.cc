// The sFlow agent's statistics file. Not built yet: no traffic is read.
#include "client/client.h"

void client_usage_read_stats(sw_vlan_entry *, time_t) {}
