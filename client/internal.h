// Shared by the files of the client module, and by its tests: the client
// entries and their pool, the table operations, the client files' names,
// the period close and the directory trimming.
#pragma once

#include "client/client.h"
#include "daemon/base/fs.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

constexpr uint32_t CLIENT_BUCKETS = 8191; // files list clients by address modulo this
constexpr uint32_t CLIENT_NO_ENTRY = UINT32_MAX;

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

// ---- The entry pool (pool.cc): entries of all tables, never freed ------

constexpr uint32_t CLIENT_CHUNK_BITS = 10; // entries per pool chunk: 1024, 56 KiB

struct client_entry_pool {
	client_usage_entry **chunks;
	uint32_t chunk_count;
	uint32_t used;
};

extern client_entry_pool client_pool;

inline client_usage_entry *
client_pool_entry(uint32_t index)
{
	return &client_pool.chunks[index >> CLIENT_CHUNK_BITS][index & ((1u << CLIENT_CHUNK_BITS) - 1)];
}

// A zeroed entry's index, or CLIENT_NO_ENTRY when memory is exhausted.
uint32_t client_pool_take();

// Forgets every entry, keeping their memory for the next ones. The daemon
// never does; a fuzzer does between inputs, once no table is left.
void client_pool_reset();

// Sets the entry's address from its text, cut to 15 characters; a text
// that is not the dotted form of its number is kept aside for the files.
void client_pool_set_address(uint32_t index, const char *text);

// The address text of an entry, as the files write it.
const char *client_usage_ip_text(const client_usage_entry *entry, char buffer[16]);

// inet_aton's number in host order; false when the text does not parse.
bool client_parse_ip(const char *text, uint32_t *ip);

// ---- Tables (table.cc) ---------------------------------------------------

// Adds one raw sample of cumulative counters; only their changes count.
void add_client_usage(client_usage_table *table, const char *ip_text, uint64_t first,
		      uint64_t second, uint64_t mac, uint32_t tag, uint32_t kind);

// The same for an address given by its number, as the statistics file has it.
void add_client_usage_addr(client_usage_table *table, uint32_t ip, uint64_t first,
			   uint64_t second, uint64_t mac, uint32_t tag, uint32_t kind);

// A new client. With restore the figures are its usage so far; without,
// its baselines when another entry holds the address. A null text stands
// for the dotted form of ip. Returns 0, or 1 when out of memory.
int client_insert(client_usage_table *table, const char *text, uint32_t ip, uint32_t kind,
		  uint64_t first, uint64_t second, uint64_t mac, uint32_t tag, bool restore);

// The entry of a key, or null.
client_usage_entry *client_usage_find(const client_usage_table *table, uint32_t ip,
				      uint64_t mac, uint32_t tag);

// Ends the table's period: every entry keeps its baselines but loses its
// usage and is no longer touched.
void client_usage_close_period(client_usage_table *table);

// The entries a client file lists, in the file's order: touched, with at
// least 1 KiB in either counter, by address modulo 8191 and newest first.
void client_usage_listed(client_usage_table *table, std::vector<const client_usage_entry *> *out);

// ---- Client files (files.cc) -----------------------------------------------

// Writes the file of the table's period under root through tmp.
replace_status client_usage_write_table(client_usage_table *table, int vlan, const char *root,
					const char *tmp);

// ---- Client files read back (restore.cc) ---------------------------------

// Loads the backup tree's client file of the period containing when into
// table; mode 1 takes its figures as the period's usage, mode 0 as
// baselines only.
void read_client_backup_usage(const struct tm *when, client_usage_table *table,
			      int period, int mode);

// The lines of a client file, as read_client_backup_usage takes them.
void client_usage_restore_lines(client_usage_table *table, in_file *in, int mode);

// ---- MAC numbers (mac.cc) ------------------------------------------------

// Six groups in base 16, each added whole to value * 256; 0 when a group
// has no digit. Groups are read as the appliance's 32-bit long.
uint64_t mac2ull(const char *text);

// "" for 0, else upper-case "XX:XX:XX:XX:XX:XX" of the low 48 bits.
char *ull2mac(uint64_t value, char *buffer, size_t size);

// ---- Periods (period.cc) -------------------------------------------------

// Start of the hour, day or month of a local time.
void get_hour(const struct tm *in, struct tm *out);
void get_day(const struct tm *in, struct tm *out);
void get_month(struct tm *in, struct tm *out);

// The one of the three above that the period asks for; false for a period
// of no known kind.
bool client_period_start(uint32_t period, struct tm *tm, struct tm *start);

// The file of a period that begins at start: its date, "%Y-%m-%d-%H" for
// hours and "%Y-%m-%d" otherwise, and ".csv".
constexpr size_t CLIENT_FILE_NAME_MAX = TEXT_FIELD_MAX + 5;
void client_file_name(char name[CLIENT_FILE_NAME_MAX], uint32_t period, const struct tm *start);

// Closes the table's period when start begins a new one.
void client_usage_fixup(client_usage_table *table, int vlan, time_t start);

// ---- Retention (retention.cc) --------------------------------------------

// Keeps the limit newest files of a client directory, and once the clock
// is known, none dated in the future. flag is handed to the name list.
void client_usage_dir_limit(const char *dir, int period, int limit, int flag);
