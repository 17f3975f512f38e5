// Client periods: their starts in local time, and closing a table's period.
#include "client/client.h"

#include <cstdio>

namespace {

// Through mktime and back, with daylight saving decided afresh.
void
normalise(const struct tm *in, struct tm *out)
{
	struct tm copy = *in;
	copy.tm_isdst = -1;
	time_t t = mktime(&copy);
	localtime_r(&t, out);
}

} // namespace

void
get_hour(const struct tm *in, struct tm *out)
{
	normalise(in, out);
	out->tm_min = 0;
	out->tm_sec = 0;
}

void
get_day(const struct tm *in, struct tm *out)
{
	get_hour(in, out);
	out->tm_hour = 0;
}

void
client_file_name(char *name, size_t size, uint32_t period, const struct tm *start)
{
	char date[16];
	strftime(date, sizeof date, period == CLIENT_HOURLY ? "%Y-%m-%d-%H" : "%Y-%m-%d", start);
	snprintf(name, size, "%s.csv", date);
}

// Normalises in in place, as callers rely on.
void
get_month(struct tm *in, struct tm *out)
{
	in->tm_isdst = -1;
	time_t t = mktime(in);
	localtime_r(&t, out);
	out->tm_mday = 1;
	out->tm_hour = 0;
	out->tm_min = 0;
	out->tm_sec = 0;
}
