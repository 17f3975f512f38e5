// A VLAN's usage record: creation and the per-tick clock and traffic.
#include "usage/usage.h"

#include <cstdlib>

wu_usage *
wu_new()
{
	return static_cast<wu_usage *>(calloc(1, sizeof(wu_usage)));
}

void
wu_update_time(wu_usage *wu, time_t t)
{
	wu->prev_time = wu->now;
	wu->now = t;
	localtime_r(&t, &wu->now_tm);
	wu->update_time = wu->now;
}

// Unsigned arithmetic wraps modulo 2^64, which is what a counter that has
// run for centuries should do.
void
wu_update_usage(wu_usage *wu, uint64_t first, uint64_t second)
{
	wu->delta = {first, second};
	wu->total.first += first;
	wu->total.second += second;
}
