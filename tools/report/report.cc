// The names of the periods, the fields that both the files and the command
// line carry, and the message funnel of tally-report.
#include "tools/report/report.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstring>

const char *const report_period_name[REPORT_PERIODS] = {"hour", "day", "month"};
const char *const report_history_name[REPORT_PERIODS] = {"hourly", "daily", "monthly"};

// Only the shape is checked: the daemon prints whatever calendar fields it
// holds, and a restored 2026-02-31 is still that period's name.
bool
report_is_date(const char *text, report_period period)
{
	const char *shape = period == REPORT_HOUR ? "dddd-dd-dd-dd" : "dddd-dd-dd";
	if (strlen(text) != strlen(shape))
		return false;
	for (size_t i = 0; shape[i] != '\0'; i++) {
		bool digit = isdigit(static_cast<unsigned char>(text[i])) != 0;
		if (shape[i] == 'd' ? !digit : text[i] != shape[i])
			return false;
	}
	return true;
}

bool
report_is_mac(const char *text)
{
	for (int i = 0; i < 17; i++)
		if (i % 3 == 2 ? text[i] != ':' : !isxdigit(static_cast<unsigned char>(text[i])))
			return false;
	return text[17] == '\0';
}

bool
report_parse_number(const char *text, uint64_t max, uint64_t *value)
{
	uint64_t v = 0;
	if (*text == '\0')
		return false;
	for (; *text != '\0'; text++) {
		if (!isdigit(static_cast<unsigned char>(*text)))
			return false;
		unsigned digit = *text - '0';
		if (v > (max - digit) / 10)
			return false;
		v = v * 10 + digit;
	}
	*value = v;
	return true;
}

void
report_vmessage(const char *format, va_list ap)
{
	fputs("tally-report: ", stderr);
	vfprintf(stderr, format, ap);
	fputc('\n', stderr);
}

void
report_message(const char *format, ...)
{
	va_list ap;
	va_start(ap, format);
	report_vmessage(format, ap);
	va_end(ap);
}
