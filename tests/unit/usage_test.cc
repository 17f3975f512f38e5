// The usage record's per-tick traffic.
#include "usage/usage.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

struct UsageRecord : testing::Test {
	wu_usage *wu = wu_new();
	void TearDown() override { free(wu); }
};

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
