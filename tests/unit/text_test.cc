// The formatters produce what printf and strftime would, dates and numbers
// are read as strptime and strtoull read them, and the line reader reads
// what fgets would; the buffer writes everything once.
#include "daemon/base/text.h"
#include "tests/support/printed.h"

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

template <typename Format, typename... Args>
std::string
formatted(Format format, Args... args)
{
	char text[TEXT_FIELD_MAX];
	return std::string(text, format(text, args...));
}

std::string
printf_text(const char *format, ...) __attribute__((format(printf, 1, 2)));

std::string
printf_text(const char *format, ...)
{
	char text[128];
	va_list args;
	va_start(args, format);
	vsnprintf(text, sizeof text, format, args);
	va_end(args);
	return text;
}

TEST(Text, NumbersAsPrintfPrintsThem)
{
	const uint64_t unsigned_cases[] = {0, 1, 9, 10, 1023, 1024, 99999, UINT32_MAX,
					   uint64_t{UINT32_MAX} + 1, UINT64_MAX / 10, UINT64_MAX};
	for (uint64_t v : unsigned_cases)
		EXPECT_EQ(formatted(text_u64, v), printf_text("%" PRIu64, v));
	const int64_t signed_cases[] = {0, -1, 1, -9, -10, INT32_MIN, INT32_MAX, -65535,
					INT64_MIN, INT64_MAX};
	for (int64_t v : signed_cases)
		EXPECT_EQ(formatted(text_i64, v), printf_text("%" PRId64, v));
}

TEST(Text, AddressesAndMacs)
{
	for (uint32_t ip : {0u, 1u, 0x0a000001u, 0xc0a80164u, 0x7f000001u, 0xffffffffu})
		EXPECT_EQ(formatted(text_ip, ip), printf_text("%u.%u.%u.%u", ip >> 24, ip >> 16 & 0xff,
							       ip >> 8 & 0xff, ip & 0xff));
	EXPECT_EQ(formatted(text_mac, uint64_t{0}), "");
	for (uint64_t mac : {uint64_t{1}, uint64_t{0x001122334455}, uint64_t{0xabcdef012345},
			     uint64_t{0xffffffffffff}, uint64_t{1} << 48, UINT64_MAX}) {
		auto byte = [mac](int shift) { return static_cast<unsigned>(mac >> shift & 0xff); };
		EXPECT_EQ(formatted(text_mac, mac),
			  printf_text("%02X:%02X:%02X:%02X:%02X:%02X", byte(40), byte(32), byte(24),
				      byte(16), byte(8), byte(0)));
	}
}

// Every field from well below to well above its range, as a restored or
// edited file can make them.
TEST(Text, DatesAsStrftimePrintsThem)
{
	const int years[] = {-3000, -1901, -1900, -1, 0, 69, 99, 100, 109, 126, 138, 8099, 8100, 200000};
	const int fields[] = {-100, -10, -1, 0, 1, 9, 10, 11, 12, 23, 31, 99, 100, 1000};
	for (int year : years) {
		for (int field : fields) {
			struct tm tm = {};
			tm.tm_year = year;
			tm.tm_mon = field - 1;
			tm.tm_mday = field;
			tm.tm_hour = field;
			char expected[64];
			strftime(expected, sizeof expected, "%Y-%m-%d-%H", &tm);
			EXPECT_EQ(formatted(text_date, &tm, true), expected);
			strftime(expected, sizeof expected, "%Y-%m-%d", &tm);
			EXPECT_EQ(formatted(text_date, &tm, false), expected);
		}
	}
}

// Where strptime stops reading a date, and what it reads, so do we.
TEST(Text, DatesReadAsStrptimeReadsThem)
{
	const char *texts[] = {
		"2026-11-21", "2026-11-21-14,1,2", " 2026- 1-\t2", "2026-1-2-3", "202611-01", "99999-01-01",
		"2026-13-01", "2026-00-01", "2026-12-32", "2026-02-30", "2026-1", "2026-11-21-24",
		"2026-11-21- 07", "0-1-1", "2026-011-01", "2026-11-021", "2026-11-2x", "", "-2026-01-01",
		"2026-11-21-2", "2026-11-21-23x",
	};
	for (const char *text : texts) {
		for (bool hour : {false, true}) {
			struct tm ours = {}, theirs = {};
			const char *end = text_parse_date(text, &ours, hour);
			const char *expected = strptime(text, hour ? "%Y-%m-%d-%H" : "%Y-%m-%d", &theirs);
			SCOPED_TRACE(testing::Message() << '"' << text << "\" with hour " << hour);
			ASSERT_EQ(end, expected);
			if (end == nullptr)
				continue;
			EXPECT_EQ(ours.tm_year, theirs.tm_year);
			EXPECT_EQ(ours.tm_mon, theirs.tm_mon);
			EXPECT_EQ(ours.tm_mday, theirs.tm_mday);
			EXPECT_EQ(ours.tm_hour, theirs.tm_hour);
		}
	}
}

TEST(Text, NumbersReadAsStrtoullReadsThem)
{
	const char *texts[] = {
		"", "abc", " 42,", "+7", "-0", "-5", "18446744073709551615", "18446744073709551616",
		"-18446744073709551616", "99999999999999999999999", "0000000000000000000000001", "12abc",
		"\t\n 3", "+", "-", "- 5", "4294967296",
	};
	for (const char *text : texts) {
		const char *end;
		text_number n = text_parse_number(text, &end);
		char *expected_end;
		errno = 0;
		unsigned long long expected = strtoull(text, &expected_end, 10);
		SCOPED_TRACE(testing::Message() << '"' << text << '"');
		EXPECT_EQ(end, expected_end);
		EXPECT_EQ(n.overflow, errno == ERANGE);
		if (!n.overflow) {
			EXPECT_EQ(n.negative ? 0 - n.magnitude : n.magnitude, expected);
		}
	}
}

std::vector<std::string>
lines_by_fgets(const std::string &text)
{
	FILE *f = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
	std::vector<std::string> lines;
	char line[256];
	while (fgets(line, sizeof line, f) != nullptr)
		lines.push_back(line);
	fclose(f);
	return lines;
}

std::vector<std::string>
lines_by_in_line(const std::string &text)
{
	int ends[2];
	EXPECT_EQ(pipe(ends), 0);
	EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
	close(ends[1]);
	in_file in;
	in_start(&in, ends[0]);
	std::vector<std::string> lines;
	char line[256];
	while (in_line(&in, line))
		lines.push_back(line);
	in_close(&in);
	return lines;
}

TEST(Text, LinesAsFgetsReadsThem)
{
	const std::string texts[] = {
		"", "\n", "one\ntwo\n", "no newline at the end", std::string(255, 'a') + "\nb\n",
		std::string(600, 'x') + "\n", std::string(254, 'y') + "\n" + std::string(256, 'z'),
		std::string(5000, 'w') + "\nshort\n",
	};
	for (const std::string &text : texts)
		EXPECT_EQ(lines_by_in_line(text), lines_by_fgets(text)) << text.substr(0, 20);
}

TEST(Text, EverythingBufferedGoesOutOnce)
{
	std::string big(40000, 'q');
	std::string expected;
	std::string text = printed([&](out_file *o) {
		for (int i = 0; i < 3000; i++) {
			out_field(o, text_u64, uint64_t(i));
			out_char(o, ',');
			expected += std::to_string(i) + ",";
		}
		out_str(o, big.c_str());
		out_bytes(o, "end\n", 4);
	});
	EXPECT_EQ(text, expected + big + "end\n");
}

} // namespace
