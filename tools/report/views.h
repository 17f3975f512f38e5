// The views of tally-report: each takes what it shows from the tree and
// hands it to the format the options chose.
#pragma once

#include "tools/report/options.h"

// Shows the view o names. Returns the exit status: 0 when shown, 1 when
// the tree, the VLAN or the period is missing, which has been reported.
int report_run(const report_options &o);
