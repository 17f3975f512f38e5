// Client file lines read back into a table, in both modes, and the table
// listed and printed as the client files are written.
#include "client/internal.h"

#include <sys/mman.h>
#include <unistd.h>
#include <vector>

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static int fd = memfd_create("client.csv", 0);
	if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
		return 0;
	for (int mode : {0, 1}) {
		client_usage_set *set = client_usage_set_new(10);
		client_usage_table *t = &set->tables[CLIENT_HOURLY];
		in_file in;
		in_start(&in, dup(fd));
		(void)lseek(in.fd, 0, SEEK_SET);
		client_usage_restore_lines(t, &in, mode);
		in_close(&in);
		add_client_usage(t, "10.0.0.1", 1, 1, 0x001122334455, 0, 1);
		std::vector<const client_usage_entry *> listed;
		client_usage_listed(t, &listed);
		for (const client_usage_entry *e : listed) {
			char ip[16], mac[20];
			client_usage_ip_text(e, ip);
			ull2mac(e->mac, mac, sizeof mac);
		}
		client_usage_close_period(t);
		client_usage_set_free(set);
	}
	client_pool_reset();
	return 0;
}
