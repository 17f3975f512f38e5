// The usage record's per-tick clock and traffic.
#include "usage/usage.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

struct UsageRecord : testing::Test {
	wu_usage *wu = wu_new();
	void TearDown() override { free(wu); }
};

TEST_F(UsageRecord, StartsEmpty)
{
	ASSERT_NE(wu, nullptr);
	EXPECT_EQ(wu->hour_time, 0);
	EXPECT_EQ(wu->day_time, 0);
	EXPECT_EQ(wu->month_start, 0);
	EXPECT_EQ(wu->time_synced, 0);
	EXPECT_EQ(wu->hour_head % WU_HOUR_SLOTS, wu->hour_tail % WU_HOUR_SLOTS);
	EXPECT_EQ(wu->day_head % WU_DAY_SLOTS, wu->day_tail % WU_DAY_SLOTS);
}

TEST_F(UsageRecord, ClockShiftsNowIntoPrevTime)
{
	setenv("TZ", "Europe/Berlin", 1);
	tzset();
	wu_update_time(wu, 1774780200);
	wu_update_time(wu, 1774780200);
	EXPECT_EQ(wu->prev_time, 1774780200);
	EXPECT_EQ(wu->now, 1774780200);
	EXPECT_EQ(wu->update_time, 1774780200);
	EXPECT_EQ(wu->now_tm.tm_hour, 12); // 12:30 CEST
	EXPECT_EQ(wu->now_tm.tm_min, 30);
	wu_update_time(wu, 1774780230);
	EXPECT_EQ(wu->prev_time, 1774780200);
	unsetenv("TZ");
	tzset();
}

TEST_F(UsageRecord, DeltaIsReplacedAndTotalWrapsSilently)
{
	wu->total = {UINT64_MAX, 0xffffffffu};
	wu_update_usage(wu, 1, 1);
	EXPECT_EQ(wu->total.first, 0u);
	EXPECT_EQ(wu->total.second, 0x100000000u); // carry into the high word
	EXPECT_EQ(wu->delta.first, 1u);
	wu_update_usage(wu, 0, 0);
	EXPECT_EQ(wu->delta.first, 0u);
	EXPECT_EQ(wu->delta.second, 0u);
	EXPECT_EQ(wu->total.second, 0x100000000u);
}

} // namespace
