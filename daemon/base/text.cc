// Text in and out of the daemon's files: formatters, the write buffer and
// the line reader.
#include "daemon/base/text.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The texts of every byte as a decimal octet (its digits, then their
// count) and in hexadecimal, and of the numbers 0 to 99 as two digits, made
// at compile time: addresses, MACs and amounts are most of a client line.
struct byte_texts {
	char octet[256][4];
	char hex[256][2];
	char pair[100][2];
};

constexpr byte_texts
make_byte_texts()
{
	byte_texts t = {};
	const char hex_digits[] = "0123456789ABCDEF";
	for (int v = 0; v < 256; v++) {
		int n = 0;
		if (v >= 100)
			t.octet[v][n++] = static_cast<char>('0' + v / 100);
		if (v >= 10)
			t.octet[v][n++] = static_cast<char>('0' + v / 10 % 10);
		t.octet[v][n++] = static_cast<char>('0' + v % 10);
		t.octet[v][3] = static_cast<char>(n);
		t.hex[v][0] = hex_digits[v >> 4];
		t.hex[v][1] = hex_digits[v & 0xf];
		if (v < 100) {
			t.pair[v][0] = static_cast<char>('0' + v / 10);
			t.pair[v][1] = static_cast<char>('0' + v % 10);
		}
	}
	return t;
}

constexpr byte_texts byte_text = make_byte_texts();

// A two-digit field of strftime: 0 to 9 get a leading zero, anything else
// is printed as it is.
char *
two_digits(char *p, int v)
{
	if (v >= 0 && v <= 9) {
		*p++ = '0';
		*p++ = static_cast<char>('0' + v);
		return p;
	}
	return text_i64(p, v);
}


bool
is_blank(char c)
{
	return c == ' ' || (c >= '\t' && c <= '\r');
}

// One number as strptime reads it; null without a digit or out of range.
// Null in, null out, so that the fields of a date chain.
const char *
parse_number(const char *p, int min, int max, int digits, int *value)
{
	if (p == nullptr)
		return nullptr;
	while (is_blank(*p))
		p++;
	if (*p < '0' || *p > '9')
		return nullptr;
	int v = 0;
	do
		v = v * 10 + (*p++ - '0');
	while (--digits > 0 && v * 10 <= max && *p >= '0' && *p <= '9');
	if (v < min || v > max)
		return nullptr;
	*value = v;
	return p;
}

// A literal character of the format must be the next one.
const char *
parse_dash(const char *p)
{
	return p != nullptr && *p == '-' ? p + 1 : nullptr;
}

bool
write_all(int fd, const char *p, size_t n)
{
	while (n > 0) {
		ssize_t done = write(fd, p, n);
		if (done < 0 && errno == EINTR)
			continue;
		if (done <= 0)
			return false;
		p += done;
		n -= static_cast<size_t>(done);
	}
	return true;
}

} // namespace

// The digits are written from the last, two at a time, once their count is
// known.
char *
text_u64(char *p, uint64_t v)
{
	int n = 1;
	for (uint64_t rest = v; rest >= 10; rest /= 10)
		n++;
	char *end = p + n;
	while (v >= 100) {
		end -= 2;
		memcpy(end, byte_text.pair[v % 100], 2);
		v /= 100;
	}
	if (v >= 10) {
		end -= 2;
		memcpy(end, byte_text.pair[v], 2);
	} else {
		*--end = static_cast<char>('0' + v);
	}
	return p + n;
}

char *
text_i64(char *p, int64_t v)
{
	if (v >= 0)
		return text_u64(p, static_cast<uint64_t>(v));
	*p++ = '-';
	return text_u64(p, 0 - static_cast<uint64_t>(v));
}

char *
text_date(char *p, const struct tm *tm, bool hour)
{
	p = text_i64(p, int64_t{tm->tm_year} + 1900);
	*p++ = '-';
	p = two_digits(p, tm->tm_mon + 1);
	*p++ = '-';
	p = two_digits(p, tm->tm_mday);
	if (!hour)
		return p;
	*p++ = '-';
	return two_digits(p, tm->tm_hour);
}

// Each octet's text is copied whole (three bytes and the dot) and the
// pointer moves by its length.
char *
text_ip(char *p, uint32_t ip)
{
	for (int shift = 24; shift >= 0; shift -= 8) {
		const char *octet = byte_text.octet[ip >> shift & 0xff];
		memcpy(p, octet, 3);
		p += octet[3];
		*p++ = '.';
	}
	return p - 1;
}

char *
text_mac(char *p, uint64_t mac)
{
	if (mac == 0)
		return p;
	for (int shift = 40; shift >= 0; shift -= 8) {
		memcpy(p, byte_text.hex[mac >> shift & 0xff], 2);
		p[2] = ':';
		p += 3;
	}
	return p - 1;
}

const char *
text_parse_date(const char *p, struct tm *tm, bool hour)
{
	int year, mon, mday, h = 0;
	p = parse_dash(parse_number(p, 0, 9999, 4, &year));
	p = parse_dash(parse_number(p, 1, 12, 2, &mon));
	p = parse_number(p, 1, 31, 2, &mday);
	if (hour)
		p = parse_number(parse_dash(p), 0, 23, 2, &h);
	if (p == nullptr)
		return nullptr;
	tm->tm_year = year - 1900;
	tm->tm_mon = mon - 1;
	tm->tm_mday = mday;
	if (hour)
		tm->tm_hour = h;
	return p;
}

text_number
text_parse_number(const char *p, const char **end)
{
	text_number n = {0, false, false};
	const char *s = p;
	while (is_blank(*s))
		s++;
	if (*s == '+' || *s == '-')
		n.negative = *s++ == '-';
	if (*s < '0' || *s > '9') {
		*end = p;
		return {0, false, false};
	}
	constexpr uint64_t last_safe = UINT64_MAX / 10; // times ten, still no overflow
	for (; *s >= '0' && *s <= '9'; s++) {
		uint64_t digit = static_cast<uint64_t>(*s - '0');
		if (n.magnitude >= last_safe &&
		    (n.magnitude > last_safe || digit > UINT64_MAX - last_safe * 10))
			n.overflow = true;
		else
			n.magnitude = n.magnitude * 10 + digit;
	}
	*end = s;
	return n;
}

void
out_start(out_file *o, int fd)
{
	o->fd = fd;
	o->failed = false;
	o->used = 0;
}

void
out_flush(out_file *o)
{
	if (!o->failed && !write_all(o->fd, o->data, o->used))
		o->failed = true;
	o->used = 0;
}

// Large pieces go out directly rather than through the buffer.
void
out_bytes(out_file *o, const char *p, size_t n)
{
	if (n > sizeof o->data) {
		out_flush(o);
		if (!o->failed && !write_all(o->fd, p, n))
			o->failed = true;
		return;
	}
	memcpy(out_room(o, n), p, n);
	o->used += n;
}

void
out_str(out_file *o, const char *s)
{
	out_bytes(o, s, strlen(s));
}

bool
out_finish(out_file *o)
{
	out_flush(o);
	bool closed = close(o->fd) == 0;
	return closed && !o->failed;
}

bool
in_open(in_file *in, const char *path)
{
	in_start(in, open(path, O_RDONLY | O_CLOEXEC));
	return in->fd >= 0;
}

void
in_start(in_file *in, int fd)
{
	in->fd = fd;
	in->pos = in->len = 0;
}

// A read error ends the file, as it ends fgets.
bool
in_line(in_file *in, char line[256])
{
	size_t n = 0;
	while (n < 255) {
		if (in->pos == in->len) {
			ssize_t got = read(in->fd, in->data, sizeof in->data);
			if (got < 0 && errno == EINTR)
				continue;
			if (got <= 0)
				break;
			in->pos = 0;
			in->len = static_cast<size_t>(got);
		}
		const char *from = in->data + in->pos;
		size_t room = 255 - n < in->len - in->pos ? 255 - n : in->len - in->pos;
		const void *newline = memchr(from, '\n', room);
		size_t taken = newline ? static_cast<const char *>(newline) - from + 1 : room;
		memcpy(line + n, from, taken);
		n += taken;
		in->pos += taken;
		if (newline != nullptr)
			break;
	}
	line[n] = '\0';
	return n > 0;
}

void
in_close(in_file *in)
{
	(void)close(in->fd);
}
