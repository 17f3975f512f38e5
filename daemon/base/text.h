// Text in and out of the daemon's files without printf or stdio on the
// per-tick path: a buffer that goes out to its file in large writes, the
// formatters of the few kinds of field the files hold (producing exactly
// what printf and strftime would), and a line reader with fgets' limits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

// The longest text one formatter call produces, a 64-bit number or a date
// of a 64-bit year.
constexpr size_t TEXT_FIELD_MAX = 48;

// The formatters write at p and return the end, without a terminating NUL.
char *text_u64(char *p, uint64_t v);   // "%llu"
char *text_i64(char *p, int64_t v);    // "%lld"
char *text_date(char *p, const struct tm *tm, bool hour); // "%Y-%m-%d", with "-%H"
char *text_ip(char *p, uint32_t ip);   // dotted, first octet most significant
char *text_mac(char *p, uint64_t mac); // "%02X:..." of the low 48 bits; nothing for 0

// Reads a date at p as strptime reads "%Y-%m-%d", with "-%H" behind it
// when hour: blanks before each number skipped, at most four digits for
// the year and two for the rest, stopping early where another digit would
// pass the field's largest value. Sets the year, month, day (and hour) and
// returns the end, or null where strptime gives up.
const char *text_parse_date(const char *p, struct tm *tm, bool hour);

// A decimal number read at p as strtoull reads it in base 10: blanks, a
// sign, digits. Its magnitude, whether it had a minus sign, and whether it
// passed 64 bits; *end is behind the digits, or p itself when there is none.
struct text_number {
	uint64_t magnitude;
	bool negative;
	bool overflow;
};

text_number text_parse_number(const char *p, const char **end);

// A file being written, buffered; every write's result is kept.
struct out_file {
	int fd;
	bool failed;
	size_t used;
	char data[16384];
};

void out_start(out_file *o, int fd);
void out_bytes(out_file *o, const char *p, size_t n);
void out_str(out_file *o, const char *s);

// Writes out what is buffered.
void out_flush(out_file *o);

// Room for n bytes at the end of the buffer, n at most its size; the text
// written there counts once out_commit is given its end.
inline char *
out_room(out_file *o, size_t n)
{
	if (o->used + n > sizeof o->data)
		out_flush(o);
	return o->data + o->used;
}

inline void
out_commit(out_file *o, char *end)
{
	o->used = static_cast<size_t>(end - o->data);
}

template <typename Format, typename... Args>
void
out_field(out_file *o, Format format, Args... args)
{
	out_commit(o, format(out_room(o, TEXT_FIELD_MAX), args...));
}

inline void
out_char(out_file *o, char c)
{
	*out_room(o, 1) = c;
	o->used++;
}

// Writes what is buffered and closes the file; false when any write or the
// close failed.
bool out_finish(out_file *o);

// A file being read line by line, as fgets with a 256-byte buffer reads it:
// a longer line comes in pieces of 255 characters.
struct in_file {
	int fd;
	size_t pos;
	size_t len;
	char data[4096];
};

// False when path cannot be opened.
bool in_open(in_file *in, const char *path);
void in_start(in_file *in, int fd);

// The next line, NUL-terminated, with its newline; false at the end.
bool in_line(in_file *in, char line[256]);

void in_close(in_file *in);
