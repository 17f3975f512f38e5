// MAC addresses as the client files and the client key carry them.
#include "client/internal.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// The appliance's long is 32 bits wide: a group beyond it reads as its limit
// there, so it must here too.
long long
clamp_to_long32(long long v)
{
	if (v > INT32_MAX)
		return INT32_MAX;
	if (v < INT32_MIN)
		return INT32_MIN;
	return v;
}

} // namespace

// A separator is skipped only when one is there: a text that ends early
// reads as a group without digits.
uint64_t
mac2ull(const char *text)
{
	uint64_t value = 0;
	const char *p = text;
	for (int group = 0; group < 6; group++) {
		char *end;
		long long number = strtoll(p, &end, 16);
		if (end == p)
			return 0;
		value = value * 256 + static_cast<uint64_t>(clamp_to_long32(number));
		p = *end != '\0' ? end + 1 : end;
	}
	return value;
}

char *
ull2mac(uint64_t value, char *buffer, size_t size)
{
	char text[TEXT_FIELD_MAX];
	size_t n = static_cast<size_t>(text_mac(text, value) - text);
	if (size > 0) {
		n = n < size - 1 ? n : size - 1;
		memcpy(buffer, text, n);
		buffer[n] = '\0';
	}
	return buffer;
}
