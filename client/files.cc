// Client files and their retention. Not built yet: none is written.
#include "client/client.h"

void client_usage_write_files(sw_vlan_entry *) {}
