// The VLAN history files of the run-time tree.
// Not built yet: no file is written.
#include "usage/usage.h"

void wu_save_hourly(wu_usage *) {}
void wu_save_daily(wu_usage *) {}
void wu_save_monthly(wu_usage *) {}
