// The sFlow agent's statistics file: a header, one descriptor per station,
// and each station's records, big-endian whatever the host. Every field is
// assembled from bytes, so any host reads it alike.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t SFLOW_MAGIC = 0x098AFE01;
constexpr size_t SFLOW_HEADER_SIZE = 8;   // magic, host count
constexpr size_t SFLOW_HOST_SIZE = 16;    // one per station, from offset 8
constexpr size_t SFLOW_RECORD_SIZE = 168; // one per VLAN and address of a station

struct sflow_header {
	uint32_t magic;
	uint32_t host_count;
};

struct sflow_host {
	uint8_t mac[6];
	uint32_t record_count;
	uint32_t record_offset; // absolute file offset of the first record
};

struct sflow_record {
	uint16_t vlan;
	uint16_t tag;
	uint8_t valid;
	uint32_t ip; // numeric value, first octet most significant
	uint64_t second_counter;
	uint64_t first_counter;
};

sflow_header sflow_decode_header(const uint8_t *p);
sflow_host sflow_decode_host(const uint8_t *p);
sflow_record sflow_decode_record(const uint8_t *p);
