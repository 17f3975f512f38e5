// The parsers of history and backup lines. Their dates and numbers are read
// as strptime and strtoull read them, and a line they read, printed again
// and read once more, prints the same: edited files settle after one pass.
#include "daemon/base/text.h"
#include "tests/support/printed.h"
#include "usage/usage.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

uint64_t
read_bytes(const char *text, const char **end)
{
	text_number n = text_parse_number(text, end);
	return n.overflow ? UINT64_MAX : n.negative ? 0 - n.magnitude : n.magnitude;
}

enum line_shape { HOUR_LINE, DAY_LINE, MONTH_LINE };

struct line_kind {
	line_shape shape;
	wu_amount_reader read; // null: the run-time monthly history's own parser
};

const line_kind kinds[] = {
	{HOUR_LINE, read_bytes},
	{DAY_LINE, read_bytes},
	{MONTH_LINE, read_bytes},
	{MONTH_LINE, nullptr},
};

std::string
reprinted(const line_kind &k, const char *line)
{
	struct tm start, end;
	wu_pair amounts = {0, 0};
	if (k.read == nullptr)
		wu_parse_month_line(line, &start, &end, &amounts.first, &amounts.second);
	else
		wu_parse_line(line, k.shape == HOUR_LINE, &start, k.shape == MONTH_LINE ? &end : nullptr,
			      k.read, &amounts);
	return printed([&](out_file *o) {
		if (k.shape == MONTH_LINE)
			wu_print_month_line(o, &start, &end, amounts.first, amounts.second);
		else if (k.shape == HOUR_LINE)
			wu_print_hour_line(o, &start, amounts.first, amounts.second);
		else
			wu_print_day_line(o, &start, amounts.first, amounts.second);
	});
}

// Where strtoull stops, and what it makes of the number, ours do too.
void
check_number(const char *text)
{
	const char *end;
	text_number n = text_parse_number(text, &end);
	char *expected_end;
	errno = 0;
	unsigned long long expected = strtoull(text, &expected_end, 10);
	if (end != expected_end || n.overflow != (errno == ERANGE))
		abort();
	if (!n.overflow && (n.negative ? 0 - n.magnitude : n.magnitude) != expected)
		abort();
}

// Where strptime stops, and the fields it sets, ours do too.
void
check_date(const char *text, bool hour)
{
	struct tm ours = {}, theirs = {};
	const char *end = text_parse_date(text, &ours, hour);
	const char *expected = strptime(text, hour ? "%Y-%m-%d-%H" : "%Y-%m-%d", &theirs);
	if (end != expected)
		abort();
	if (end != nullptr && (ours.tm_year != theirs.tm_year || ours.tm_mon != theirs.tm_mon ||
			       ours.tm_mday != theirs.tm_mday || ours.tm_hour != theirs.tm_hour))
		abort();
}

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	// Lines come from fgets with 256 bytes: at most 255 characters.
	std::string line(reinterpret_cast<const char *>(data), size < 255 ? size : 255);
	line = line.substr(0, strlen(line.c_str()));
	check_date(line.c_str(), false);
	check_date(line.c_str(), true);
	check_number(line.c_str());
	for (const line_kind &k : kinds) {
		std::string once = reprinted(k, line.c_str());
		if (!once.empty() && reprinted(k, once.c_str()) != once)
			abort();
	}
	return 0;
}
