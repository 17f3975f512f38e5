// A VLAN's client tables: one entry per client key, cumulative counters
// turned into per-period usage.
//
// Entries of all tables live in one pool and are never freed, so an entry
// costs its 56 bytes and no allocator overhead; a pool index is both the
// chain link and the order of insertion, which is what the client files
// need for their newest-first order. Each table hashes addresses into a
// power-of-two array of chain heads that grows with it, so an idle VLAN
// costs a few hundred bytes rather than a head for every one of the 8191
// buckets of the files' order.
#include "client/client.h"

#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t no_entry = UINT32_MAX;
constexpr uint32_t chunk_bits = 10; // entries per pool chunk: 1024, 56 KiB
constexpr uint32_t chunk_mask = (1u << chunk_bits) - 1;
constexpr uint32_t max_load = 2; // entries per head before the heads double

struct entry_pool {
	client_usage_entry **chunks;
	uint32_t chunk_count;
	uint32_t used;
};

entry_pool pool;

// Address texts that are not the dotted form of their number (restored
// from edited files), by pool index; appended in index order, so sorted.
struct odd_text {
	uint32_t index;
	char text[16];
};

std::vector<odd_text> odd_texts;

client_usage_entry *
entry_at(uint32_t index)
{
	return &pool.chunks[index >> chunk_bits][index & chunk_mask];
}

uint32_t
index_of(const client_usage_entry *e)
{
	for (uint32_t c = 0; c < pool.chunk_count; c++) {
		const client_usage_entry *base = pool.chunks[c];
		if (e >= base && e < base + (1u << chunk_bits))
			return c << chunk_bits | static_cast<uint32_t>(e - base);
	}
	return no_entry;
}

// A zeroed entry's index, or no_entry when memory is exhausted.
uint32_t
pool_take()
{
	if ((pool.used & chunk_mask) == 0 && (pool.used >> chunk_bits) == pool.chunk_count) {
		auto *chunk = static_cast<client_usage_entry *>(
			calloc(1u << chunk_bits, sizeof(client_usage_entry)));
		if (chunk == nullptr)
			return no_entry;
		auto **chunks = static_cast<client_usage_entry **>(
			realloc(pool.chunks, (pool.chunk_count + 1) * sizeof(client_usage_entry *)));
		if (chunks == nullptr) {
			free(chunk);
			return no_entry;
		}
		chunks[pool.chunk_count++] = chunk;
		pool.chunks = chunks;
	}
	return pool.used++;
}

uint32_t
head_of(const client_usage_table *t, uint32_t ip)
{
	return (ip * 0x9E3779B1u) >> (32 - t->head_bits);
}

uint32_t
head_count(const client_usage_table *t)
{
	return t->heads == nullptr ? 0 : 1u << t->head_bits;
}

// Links an entry at the head of its chain.
void
chain_push(client_usage_table *t, uint32_t index)
{
	client_usage_entry *e = entry_at(index);
	uint32_t h = head_of(t, e->ip);
	e->next = t->heads[h];
	t->heads[h] = index;
}

// Keeps chains one or two entries long; the first heads live in the table
// itself, so a VLAN with a client or two allocates none. Order within a
// chain carries no meaning: a key is unique, and so is the current holder
// of an address.
bool
grow_heads(client_usage_table *t)
{
	uint32_t *old = t->heads;
	uint32_t old_size = head_count(t);
	uint32_t *heads = t->small_heads;
	uint32_t bits = CLIENT_SMALL_HEAD_BITS;
	if (old != nullptr) {
		bits = t->head_bits + 1;
		heads = static_cast<uint32_t *>(malloc(sizeof(uint32_t) << bits));
		if (heads == nullptr)
			return false;
	}
	std::fill(heads, heads + (1u << bits), no_entry);
	t->heads = heads;
	t->head_bits = bits;
	for (uint32_t h = 0; h < old_size; h++) {
		for (uint32_t i = old[h]; i != no_entry;) {
			uint32_t next = entry_at(i)->next;
			chain_push(t, i);
			i = next;
		}
	}
	if (old != t->small_heads)
		free(old);
	return true;
}

// Every entry of the table, in no particular order.
template <typename Fn>
void
for_all(const client_usage_table *t, Fn fn)
{
	for (uint32_t h = 0; h < head_count(t); h++)
		for (uint32_t i = t->heads[h]; i != no_entry; i = entry_at(i)->next)
			fn(i, entry_at(i));
}

template <typename Fn>
void
for_chain(const client_usage_table *t, uint32_t ip, Fn fn)
{
	if (t->heads == nullptr)
		return;
	for (uint32_t i = t->heads[head_of(t, ip)]; i != no_entry; i = entry_at(i)->next)
		fn(entry_at(i));
}

client_usage_entry *
find_key(const client_usage_table *t, uint32_t ip, uint64_t mac, uint32_t tag)
{
	client_usage_entry *found = nullptr;
	for_chain(t, ip, [&](client_usage_entry *e) {
		if (found == nullptr && e->ip == ip && e->mac == mac && e->tag == tag)
			found = e;
	});
	return found;
}

client_usage_entry *
current_holder(const client_usage_table *t, uint32_t ip)
{
	client_usage_entry *found = nullptr;
	for_chain(t, ip, [&](client_usage_entry *e) {
		if (found == nullptr && e->current && e->ip == ip)
			found = e;
	});
	return found;
}

void
make_current(const client_usage_table *t, client_usage_entry *holder)
{
	for_chain(t, holder->ip, [&](client_usage_entry *e) {
		if (e->ip == holder->ip)
			e->current = 0;
	});
	holder->current = 1;
}

// inet_aton's number in host order: the address's numeric value.
bool
parse_ip(const char *text, uint32_t *ip)
{
	struct in_addr a;
	if (inet_aton(text, &a) == 0)
		return false;
	*ip = ntohl(a.s_addr);
	return true;
}

void
format_ip(uint32_t ip, char buffer[16])
{
	snprintf(buffer, 16, "%u.%u.%u.%u", ip >> 24, ip >> 16 & 0xff, ip >> 8 & 0xff, ip & 0xff);
}

void
baseline(client_usage_entry *e, uint64_t first, uint64_t second)
{
	e->last_second = second;
	e->last_first = first;
	e->fresh = 0;
	e->touched = 1;
}

// The entry's address is its text parsed again, once cut to the 15
// characters an entry keeps; a text that is not the dotted form of that
// number is kept aside, since the files must show it as it was.
void
set_address(client_usage_entry *e, uint32_t index, const char *text)
{
	odd_text copy = {index, {}};
	strncpy(copy.text, text, sizeof copy.text - 1);
	uint32_t ip = 0;
	bool parsed = parse_ip(copy.text, &ip);
	char canonical[16];
	format_ip(ip, canonical);
	e->ip = ip;
	if (parsed && strcmp(canonical, copy.text) == 0)
		return;
	odd_texts.push_back(copy);
	e->odd_text = 1;
}

// A new client: with restore, the figures are its usage so far; without,
// they are baselines when another entry holds the address now, since the
// counters belong to the address. A null text stands for the dotted form of
// caller_ip. Returns 0, or 1 when out of memory.
int
client_insert(client_usage_table *t, const char *text, uint32_t caller_ip, uint32_t kind,
	      uint64_t first, uint64_t second, uint64_t mac, uint32_t tag, bool restore)
{
	if (t->count >= max_load * head_count(t) && !grow_heads(t))
		return 1;
	uint32_t index = pool_take();
	if (index == no_entry)
		return 1;
	client_usage_entry *e = entry_at(index);

	if (text != nullptr)
		set_address(e, index, text);
	else
		e->ip = caller_ip;
	e->mac = mac;
	e->tag = tag;
	e->fresh = 1;

	if (restore) {
		e->kind = kind & 7;
		e->acc_first = first;
		e->acc_second = second;
	} else {
		e->kind = 1;
		if (current_holder(t, caller_ip) != nullptr) {
			e->last_second = second;
			e->last_first = first;
		}
		for_chain(t, caller_ip, [&](client_usage_entry *other) {
			if (other->ip == caller_ip)
				other->current = 0;
		});
		e->current = 1;
	}
	chain_push(t, index);
	t->count++;
	e->touched = 1;
	return 0;
}

void
add_sample(client_usage_table *t, const char *text, uint32_t ip, uint64_t first, uint64_t second,
	   uint64_t mac, uint32_t tag, uint32_t kind)
{
	client_usage_entry *e = find_key(t, ip, mac, tag);
	if (e == nullptr) {
		(void)client_insert(t, text, ip, 1, first, second, mac, tag, false);
		return;
	}
	if (kind >= 1 && kind <= 5)
		e->kind = kind;
	if (second == e->last_second && first == e->last_first)
		return;
	// A fresh entry, counters that went backwards (the agent restarted) or
	// no baseline at all: only take the new baseline.
	if (e->fresh || second < e->last_second || first < e->last_first ||
	    (e->last_second == 0 && e->last_first == 0)) {
		baseline(e, first, second);
		return;
	}
	uint64_t d_second, d_first;
	if (e->current) {
		d_second = second - e->last_second;
		d_first = first - e->last_first;
	} else {
		// The address moved here from another MAC or tag: go on from the
		// previous holder's baselines when the counters allow it.
		const client_usage_entry *prev = current_holder(t, ip);
		if (prev != nullptr && second >= prev->last_second && first >= prev->last_first) {
			d_second = second - prev->last_second;
			d_first = first - prev->last_first;
		} else {
			d_second = second;
			d_first = first;
		}
		make_current(t, e);
	}
	e->acc_second += d_second;
	t->tick_second += d_second;
	e->acc_first += d_first;
	t->tick_first += d_first;
	baseline(e, first, second);
}

// Start of the period that contains when.
time_t
period_start(struct tm when, int period)
{
	when.tm_sec = 0;
	when.tm_min = 0;
	if (period != CLIENT_HOURLY)
		when.tm_hour = 0;
	if (period == CLIENT_MONTHLY)
		when.tm_mday = 1;
	when.tm_isdst = -1;
	return mktime(&when);
}

void
restore_line(client_usage_table *t, const char *line, int mode)
{
	char text[256], mac_text[18];
	unsigned long long first, second;
	int tag;
	if (sscanf(line, "%255[^:,],%llu,%llu,%17[0-9A-Fa-f:],%d", text, &first, &second, mac_text,
		   &tag) < 5)
		return;
	first <<= 10; // the files hold KiB
	second <<= 10;
	uint64_t mac = mac2ull(mac_text);
	uint32_t ip = 0;
	(void)parse_ip(text, &ip);

	client_usage_entry *e = find_key(t, ip, mac, static_cast<uint32_t>(tag));
	if (e == nullptr) {
		(void)client_insert(t, text, ip, 1, first, second, mac, static_cast<uint32_t>(tag),
				    mode == 1);
		return;
	}
	if (mode == 1)
		e->fresh = 1;
	e->touched = 1;
	e->acc_first = first;
	e->acc_second = second;
}

} // namespace

client_usage_set *
client_usage_set_new(int vlan)
{
	auto *set = static_cast<client_usage_set *>(calloc(1, sizeof(client_usage_set)));
	if (set == nullptr)
		return nullptr;
	for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++) {
		set->tables[p].period = p;
		set->tables[p].vlan = static_cast<uint32_t>(vlan);
	}
	return set;
}

// Entries stay in the pool, which lives as long as the process.
void
client_usage_set_free(client_usage_set *set)
{
	if (set == nullptr)
		return;
	for (client_usage_table &t : set->tables)
		if (t.heads != t.small_heads)
			free(t.heads);
	free(set);
}

void
add_client_usage(client_usage_table *table, const char *ip_text, uint64_t first, uint64_t second,
		 uint64_t mac, uint32_t tag, uint32_t kind)
{
	uint32_t ip = 0;
	(void)parse_ip(ip_text, &ip);
	add_sample(table, ip_text, ip, first, second, mac, tag, kind);
}

void
add_client_usage_addr(client_usage_table *table, uint32_t ip, uint64_t first, uint64_t second,
		      uint64_t mac, uint32_t tag, uint32_t kind)
{
	add_sample(table, nullptr, ip, first, second, mac, tag, kind);
}

void
read_client_backup_usage(const struct tm *when, client_usage_table *table, int period, int mode)
{
	if (static_cast<unsigned>(period) > CLIENT_MONTHLY)
		return;
	char name[32], path[256];
	client_file_name(name, sizeof name, static_cast<uint32_t>(period), when);
	int vlan = static_cast<int>(table->vlan);
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, vlan, sw_usage_dir[period], name);
	FILE *f = fopen(path, "r");
	if (f == nullptr)
		return;
	table->prev_time = table->update_time;
	table->update_time = period_start(*when, period);
	client_usage_restore_lines(table, f, mode);
	fclose(f);
}

void
client_usage_restore_lines(client_usage_table *table, FILE *f, int mode)
{
	char line[256];
	while (fgets(line, sizeof line, f) != nullptr)
		restore_line(table, line, mode);
}

const client_usage_entry *
client_usage_find(const client_usage_table *table, uint32_t ip, uint64_t mac, uint32_t tag)
{
	return find_key(table, ip, mac, tag);
}

const char *
client_usage_ip_text(const client_usage_entry *entry, char buffer[16])
{
	if (!entry->odd_text) {
		format_ip(entry->ip, buffer);
		return buffer;
	}
	uint32_t index = index_of(entry);
	auto it = std::lower_bound(odd_texts.begin(), odd_texts.end(), index,
				   [](const odd_text &o, uint32_t i) { return o.index < i; });
	memcpy(buffer, it->text, sizeof it->text);
	return buffer;
}

void
client_usage_close_period(client_usage_table *table)
{
	for_all(table, [](uint32_t, client_usage_entry *e) {
		e->acc_second = 0;
		e->acc_first = 0;
		e->touched = 0;
	});
}

// Bucket by bucket of the address modulo 8191, newest first within a
// bucket, as clients have always been listed. The pool index is the order
// of insertion.
void
client_usage_listed(const client_usage_table *table, std::vector<const client_usage_entry *> *out)
{
	constexpr uint64_t at_least = 1024; // a client is listed from 1 KiB on
	struct listed {
		uint32_t bucket;
		uint32_t index;
	};
	static std::vector<listed> order;
	order.clear();
	for_all(table, [](uint32_t index, const client_usage_entry *e) {
		if (e->touched && (e->acc_first >= at_least || e->acc_second >= at_least))
			order.push_back({e->ip % CLIENT_BUCKETS, index});
	});
	std::sort(order.begin(), order.end(), [](const listed &a, const listed &b) {
		return a.bucket != b.bucket ? a.bucket < b.bucket : a.index > b.index;
	});
	out->clear();
	for (const listed &l : order)
		out->push_back(entry_at(l.index));
}
