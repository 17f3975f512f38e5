// The three totals files of the run-time tree.
// Not built yet: no file is written.
#include "totals/totals.h"

void wu_save_hourly_total_full(wu_totals *, int, int) {}
void wu_save_daily_total_full(wu_totals *, int, int) {}
void wu_save_monthly_total_full(wu_totals *, int, int) {}
void wu_save_hourly_total(wu_totals *) {}
void wu_save_daily_total(wu_totals *) {}
void wu_save_monthly_total(wu_totals *) {}
