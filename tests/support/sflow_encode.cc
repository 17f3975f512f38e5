// Writing statistics files, for the simulator and the tests. Reserved
// bytes are left as the caller zeroed them.
#include "tests/support/sflow_encode.h"

namespace {

void
put16(uint8_t *p, uint16_t v)
{
	p[0] = static_cast<uint8_t>(v >> 8);
	p[1] = static_cast<uint8_t>(v);
}

void
put32(uint8_t *p, uint32_t v)
{
	for (int i = 0; i < 4; i++)
		p[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}

void
put64(uint8_t *p, uint64_t v)
{
	put32(p, static_cast<uint32_t>(v >> 32));
	put32(p + 4, static_cast<uint32_t>(v));
}

} // namespace

void
sflow_encode_header(const sflow_header &h, uint8_t *p)
{
	put32(p, h.magic);
	put32(p + 4, h.host_count);
}

void
sflow_encode_host(const sflow_host &h, uint8_t *p)
{
	for (int i = 0; i < 6; i++)
		p[i] = h.mac[i];
	put32(p + 8, h.record_count);
	put32(p + 12, h.record_offset);
}

void
sflow_encode_record(const sflow_record &r, uint8_t *p)
{
	put16(p, r.vlan);
	put16(p + 2, r.tag);
	p[4] = r.valid;
	put32(p + 8, r.ip);
	put64(p + 40, r.second_counter);
	put64(p + 96, r.first_counter);
}
