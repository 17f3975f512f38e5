// The backup CSVs of each usage record, written on the backup cadence and
// read back at start so that usage survives a restart.
#pragma once

#include "usage/usage.h"

// Each returns 0, or -1 when the file could not be written.
int create_backup_hourly(wu_usage *wu);
int create_backup_daily(wu_usage *wu);
int create_backup_monthly(wu_usage *wu);

// Refills a record from the VLAN's backup CSVs; ignored and kind have no
// effect.
void read_backup_ex(wu_usage *wu, int ignored, int kind, int vlan);
