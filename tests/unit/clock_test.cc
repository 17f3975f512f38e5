// The hour and day bounds of a tick in local time, across daylight-saving
// changes. Expected values are worked out independently of the code.
#include "daemon/base/clock.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

struct bounds_case {
	const char *tz;
	time_t now;
	tick_bounds expected;
};

const bounds_case bounds_cases[] = {
	{"UTC", 1795256225, {1795255200, 1795258799, 1795219200, 1795305599}},
	// 2026-03-29 12:30 CEST, a 23-hour day.
	{"Europe/Berlin", 1774780200, {1774778400, 1774781999, 1774738800, 1774821599}},
	// 2026-10-25 20:00 CET, a 25-hour day.
	{"Europe/Berlin", 1792954800, {1792954800, 1792958399, 1792879200, 1792969199}},
	// Its hour 02 comes twice: 02:30 CEST, then 02:30 CET, each within its
	// own pass whatever the conversion before it.
	{"Europe/Berlin", 1792888200, {1792886400, 1792889999, 1792879200, 1792969199}},
	{"Europe/Berlin", 1792891800, {1792890000, 1792893599, 1792879200, 1792969199}},
	{"Europe/Berlin", 1792888200, {1792886400, 1792889999, 1792879200, 1792969199}},
	// 2026-03-08 09:00:01 EDT, a 23-hour day.
	{"America/New_York", 1772974801, {1772974800, 1772978399, 1772946000, 1773028799}},
	// 2026-04-05 14:00, the day clocks go back by half an hour: 24.5 hours.
	{"Australia/Lord_Howe", 1775359800, {1775359800, 1775363399, 1775307600, 1775395799}},
};

TEST(TickBounds, FollowLocalHourAndDayAcrossDaylightSaving)
{
	for (const bounds_case &c : bounds_cases) {
		setenv("TZ", c.tz, 1);
		tzset();
		compute_tick_bounds_at(c.now);
		SCOPED_TRACE(testing::Message() << c.tz << " at " << c.now);
		EXPECT_EQ(tick.hour_start, c.expected.hour_start);
		EXPECT_EQ(tick.hour_end, c.expected.hour_end);
		EXPECT_EQ(tick.day_start, c.expected.day_start);
		EXPECT_EQ(tick.day_end, c.expected.day_end);
	}
	unsetenv("TZ");
	tzset();
}

} // namespace
