// Decoding the sFlow agent's statistics file. The appliance writes it
// big-endian; every field is assembled from bytes so any host reads it alike.
#include "client/sflow.h"

namespace {

uint16_t
be16(const uint8_t *p)
{
	return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

uint32_t
be32(const uint8_t *p)
{
	return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
	       static_cast<uint32_t>(p[2]) << 8 | p[3];
}

uint64_t
be64(const uint8_t *p)
{
	return static_cast<uint64_t>(be32(p)) << 32 | be32(p + 4);
}

} // namespace

sflow_header
sflow_decode_header(const uint8_t *p)
{
	return {be32(p), be32(p + 4)};
}

sflow_host
sflow_decode_host(const uint8_t *p)
{
	sflow_host h;
	for (int i = 0; i < 6; i++)
		h.mac[i] = p[i];
	h.record_count = be32(p + 8);
	h.record_offset = be32(p + 12);
	return h;
}

sflow_record
sflow_decode_record(const uint8_t *p)
{
	sflow_record r;
	r.vlan = be16(p);
	r.tag = be16(p + 2);
	r.valid = p[4];
	r.ip = be32(p + 8);
	r.second_counter = be64(p + 40);
	r.first_counter = be64(p + 96);
	return r;
}
