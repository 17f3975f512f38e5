// tally-report: shows operators the usage that tally publishes in its
// run-time tree, or in a copy of one. It only reads.
#include "tools/report/options.h"
#include "tools/report/views.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

int
main(int argc, char **argv)
{
	report_options o;
	switch (report_parse_options(argc, argv, &o)) {
	case REPORT_PARSE_HELP:
		report_print_usage(stdout);
		return 0;
	case REPORT_PARSE_ERROR:
		report_print_usage(stderr);
		return 2;
	case REPORT_PARSE_RUN:
		break;
	}
	int status = report_run(o);
	if (fflush(stdout) != 0 || ferror(stdout)) {
		report_message("cannot write the report: %s", strerror(errno));
		return 1;
	}
	return status;
}
