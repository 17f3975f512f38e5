// Whole ticks of the daemon over input it does not control: a statistics
// file, and a monthly history and totals files that something else edited
// between two ticks, the second a tick, an hour, a day or a month later, or
// earlier. Runs where the daemon's own paths are a scratch tree
// (tools/fuzz runs it in a sandbox), on a clock of its own.
#include "client/internal.h"
#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"
#include "daemon/registry.h"
#include "fuzz/fuzz.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

constexpr int vlan = 10;
constexpr time_t start = 1796078400; // Mon 2026-11-30 22:40:00 UTC
constexpr time_t steps[] = {30, 3600, 86400, 31 * 86400, -3600, -40 * 86400};

time_t fake_now;

std::string
vlan_file(const char *name)
{
	char path[256];
	layout_vlan_path(path, sizeof path, RUN_ROOT, vlan, VLAN_DIR, name);
	return path;
}

std::string
totals_file(const char *name)
{
	char path[256];
	layout_root_path(path, sizeof path, RUN_ROOT, name);
	return path;
}

} // namespace

// The daemon's clock.
extern "C" time_t
time(time_t *t)
{
	if (t != nullptr)
		*t = fake_now;
	return fake_now;
}

// Parts: settings (clock marker, step), the statistics file, then the
// monthly history and the three totals files put in place before the
// second tick.
extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	std::vector<std::string> parts = fuzz_sections(data, size, 6);
	const std::string &settings = parts[0];
	bool clock_set = settings.empty() || settings[0] % 2 == 0;
	size_t step_count = sizeof steps / sizeof steps[0];
	time_t step = steps[settings.size() > 1 ? static_cast<uint8_t>(settings[1]) % step_count : 0];

	(void)recursive_remove(CLOCK_MARKER);
	fuzz_write_file(STATS_FILE, parts[1]);
	if (clock_set)
		fuzz_write_file(CLOCK_MARKER, "");

	fake_now = start;
	sw_usage_registry *registry = tally_sw_usage_init();
	if (registry == nullptr)
		return 0;
	compute_tick_bounds();
	tally_sw_usage_update(registry);

	fuzz_write_file(vlan_file(MONTHLY_HISTORY), parts[2]);
	fuzz_write_file(totals_file(HOURLY_TOTALS), parts[3]);
	fuzz_write_file(totals_file(DAILY_TOTALS), parts[4]);
	fuzz_write_file(totals_file(MONTHLY_TOTALS), parts[5]);
	fake_now += step;
	compute_tick_bounds();
	tally_sw_usage_update(registry);

	tally_sw_registry_free(registry);
	client_pool_reset();
	return 0;
}
