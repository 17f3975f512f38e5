// Folding each tick's traffic into the running hour, day and month.
// Not built yet: the record keeps its clock and total only.
#include "usage/usage.h"

void wu_monthly_rollover(wu_usage *) {}
void wu_update_hourly(wu_usage *) {}
void wu_update_daily(wu_usage *) {}
void wu_update_monthly(wu_usage *) {}
void update_wu_usage_time_after_time_sync(wu_usage *) {}
