// Per-client usage of each VLAN: the sFlow statistics file and its reader,
// the hourly, daily and monthly client tables, and the client files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <vector>

struct sw_usage_registry;
struct sw_vlan_entry;

// ---- The statistics file, big-endian whatever the host -------------------

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

// Encoders for the tools that write statistics files.
void sflow_encode_header(const sflow_header &h, uint8_t *p);
void sflow_encode_host(const sflow_host &h, uint8_t *p);
void sflow_encode_record(const sflow_record &r, uint8_t *p);

// ---- MAC numbers ----------------------------------------------------------

// Six groups in base 16, each added whole to value * 256; 0 when a group
// has no digit. Groups are read as the appliance's 32-bit long.
uint64_t mac2ull(const char *text);

// "" for 0, else upper-case "XX:XX:XX:XX:XX:XX" of the low 48 bits.
char *ull2mac(uint64_t value, char *buffer, size_t size);

// ---- Client tables --------------------------------------------------------

enum client_period : uint32_t {
	CLIENT_HOURLY = 0,
	CLIENT_DAILY = 1,
	CLIENT_MONTHLY = 2,
};

constexpr uint32_t CLIENT_BUCKETS = 8191; // files list clients by address modulo this
constexpr uint32_t CLIENT_SMALL_HEAD_BITS = 1; // heads kept in the table itself

// One client (address, MAC, tag) of one table. Packed to 4-byte alignment:
// 56 bytes on every target.
#pragma pack(push, 4)
struct client_usage_entry {
	uint64_t acc_first;   // bytes in the period
	uint64_t acc_second;
	uint64_t last_first;  // raw counters last seen: the baselines
	uint64_t last_second;
	uint64_t mac;
	uint32_t ip;          // numeric address; 0 when the text did not parse
	uint32_t tag;
	uint32_t next;        // chain link (pool index)
	uint32_t touched : 1; // took a record or a restore in this period
	uint32_t current : 1; // last to take traffic for its address
	uint32_t fresh : 1;   // no baseline taken yet
	uint32_t odd_text : 1; // address text is not the dotted form of ip
	uint32_t kind : 3;
};
#pragma pack(pop)

struct client_usage_table {
	time_t update_time;
	time_t prev_time;
	uint32_t period;
	uint32_t vlan;
	uint64_t tick_second; // this tick's second-counter deltas, bytes
	uint64_t tick_first;  // this tick's first-counter deltas, bytes
	// Clients hashed by address: heads is null until the first client, then
	// small_heads until the table outgrows them.
	uint32_t *heads;
	uint32_t head_bits;
	uint32_t count;
	uint32_t small_heads[1u << CLIENT_SMALL_HEAD_BITS];
};

// A VLAN's three tables, indexed by client_period.
struct client_usage_set {
	client_usage_table tables[3];
};

// Three empty tables of the VLAN, or null when memory is exhausted.
client_usage_set *client_usage_set_new(int vlan);
void client_usage_set_free(client_usage_set *set);

// Adds one raw sample of cumulative counters; only their changes count.
void add_client_usage(client_usage_table *table, const char *ip_text, uint64_t first,
		      uint64_t second, uint64_t mac, uint32_t tag, uint32_t kind);

// The same for an address given by its number, as the statistics file has it.
void add_client_usage_addr(client_usage_table *table, uint32_t ip, uint64_t first,
			   uint64_t second, uint64_t mac, uint32_t tag, uint32_t kind);

// Loads the backup tree's client file of the period containing when into
// table; mode 1 takes its figures as the period's usage, mode 0 as
// baselines only.
void read_client_backup_usage(const struct tm *when, client_usage_table *table,
			      int period, int mode);

// The lines of a client file, as read_client_backup_usage takes them.
void client_usage_restore_lines(client_usage_table *table, FILE *f, int mode);

// The entry of a key, or null.
const client_usage_entry *client_usage_find(const client_usage_table *table, uint32_t ip,
					    uint64_t mac, uint32_t tag);

// Ends the table's period: every entry keeps its baselines but loses its
// usage and is no longer touched.
void client_usage_close_period(client_usage_table *table);

// The entries a client file lists, in the file's order: touched, with at
// least 1 KiB in either counter.
void client_usage_listed(const client_usage_table *table,
			 std::vector<const client_usage_entry *> *out);

// The address text of an entry, as the files write it.
const char *client_usage_ip_text(const client_usage_entry *entry, char buffer[16]);

// ---- Per tick -------------------------------------------------------------

// Reads the statistics file into the client tables of every VLAN, creating
// the VLANs met for the first time.
void client_usage_read_stats(sw_usage_registry *registry, time_t now);
void client_usage_read_stats_file(sw_usage_registry *registry, time_t now, const char *path);

// Start of the hour, day or month of a local time.
void get_hour(const struct tm *in, struct tm *out);
void get_day(const struct tm *in, struct tm *out);
void get_month(struct tm *in, struct tm *out);

// The file of a period that begins at start: its date, "%Y-%m-%d-%H" for
// hours and "%Y-%m-%d" otherwise, and ".csv".
void client_file_name(char *name, size_t size, uint32_t period, const struct tm *start);

// Closes the table's period when start begins a new one.
void client_usage_fixup(client_usage_table *table, int vlan, time_t start);

// Writes and trims the client files of every VLAN; the second form writes
// under another run-time root, through another temporary file.
void client_usage_write_files(sw_vlan_entry *vlans);
void client_usage_write_files_under(sw_vlan_entry *vlans, const char *root, const char *tmp);

// Keeps the limit newest files of a client directory, and once the clock
// is known, none dated in the future. flag is handed to the name list.
void client_usage_dir_limit(const char *dir, int period, int limit, int flag);
