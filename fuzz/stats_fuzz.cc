// The statistics reader on any file the agent (or anything else) may leave:
// two reads of it, so that counters move between samples.
#include "client/internal.h"
#include "tests/support/vlans.h"

#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr time_t now = 1795256225;

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	static int fd = memfd_create("stat.bin", 0);
	char path[64];
	snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
	if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
		return 0;
	{
		test_vlans vlans;
		vlans.find_or_add(10);
		vlans.read_stats(path, now);
		vlans.read_stats(path, now + 30);
	}
	client_pool_reset();
	return 0;
}
