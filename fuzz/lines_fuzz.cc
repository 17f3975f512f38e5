// The parsers of history and backup lines. A line they read, printed again
// and read once more, prints the same: edited files settle after one pass.
#include "daemon/base/clock.h"
#include "tests/support/printed.h"
#include "usage/usage.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

uint64_t
read_bytes(const char *text, char **end)
{
	return strtoull(text, end, 10);
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
	const char *format = k.shape == HOUR_LINE ? HOUR_DATE_FORMAT : DAY_DATE_FORMAT;
	if (k.read == nullptr)
		wu_parse_month_line(line, &start, &end, &amounts.first, &amounts.second);
	else
		wu_parse_line(line, format, &start, k.shape == MONTH_LINE ? &end : nullptr, k.read,
			      &amounts);
	return printed([&](out_file *o) {
		if (k.shape == MONTH_LINE)
			wu_print_month_line(o, &start, &end, amounts.first, amounts.second);
		else if (k.shape == HOUR_LINE)
			wu_print_hour_line(o, &start, amounts.first, amounts.second);
		else
			wu_print_day_line(o, &start, amounts.first, amounts.second);
	});
}

} // namespace

extern "C" int
LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	// Lines come from fgets with 256 bytes: at most 255 characters.
	std::string line(reinterpret_cast<const char *>(data), size < 255 ? size : 255);
	line = line.substr(0, strlen(line.c_str()));
	for (const line_kind &k : kinds) {
		std::string once = reprinted(k, line.c_str());
		if (!once.empty() && reprinted(k, once.c_str()) != once)
			abort();
	}
	return 0;
}
