// A VLAN's client tables: one entry per client key, cumulative counters
// turned into per-period usage.
//
// Each table hashes addresses into a power-of-two array of chain heads that
// grows with it, so an idle VLAN costs a few hundred bytes rather than a
// head for every one of the 8191 buckets of the files' order.
#include "client/internal.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr uint32_t max_load = 2; // entries per head before the heads double

client_usage_entry *
entry_at(uint32_t index)
{
	return client_pool_entry(index);
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
	std::fill(heads, heads + (1u << bits), CLIENT_NO_ENTRY);
	t->heads = heads;
	t->head_bits = bits;
	for (uint32_t h = 0; h < old_size; h++) {
		for (uint32_t i = old[h]; i != CLIENT_NO_ENTRY;) {
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
		for (uint32_t i = t->heads[h]; i != CLIENT_NO_ENTRY; i = entry_at(i)->next)
			fn(i, entry_at(i));
}

template <typename Fn>
void
for_chain(const client_usage_table *t, uint32_t ip, Fn fn)
{
	if (t->heads == nullptr)
		return;
	for (uint32_t i = t->heads[head_of(t, ip)]; i != CLIENT_NO_ENTRY; i = entry_at(i)->next)
		fn(entry_at(i));
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

// The counters belong to the address: only the newest holder takes them.
void
make_current(const client_usage_table *t, uint32_t ip, client_usage_entry *holder)
{
	for_chain(t, ip, [&](client_usage_entry *e) {
		if (e->ip == ip)
			e->current = 0;
	});
	holder->current = 1;
}

int
compare_keys(const void *a, const void *b)
{
	uint64_t x = *static_cast<const uint64_t *>(a), y = *static_cast<const uint64_t *>(b);
	return x < y ? -1 : x > y;
}

// Bucket by bucket of the address modulo 8191, newest first within a
// bucket, as clients have always been listed; the pool index is the order
// of insertion. Sorted again only when entries were added, by keys of the
// bucket and the index counted down.
bool
keep_order(client_usage_table *t)
{
	if (t->ordered == t->count)
		return true;
	auto *order = static_cast<uint32_t *>(realloc(t->order, t->count * sizeof(uint32_t)));
	if (order != nullptr)
		t->order = order;
	auto *keys = static_cast<uint64_t *>(malloc(t->count * sizeof(uint64_t)));
	if (order == nullptr || keys == nullptr) {
		free(keys);
		return false;
	}
	uint32_t n = 0;
	for_all(t, [&](uint32_t index, const client_usage_entry *e) {
		keys[n++] = uint64_t{e->ip % CLIENT_BUCKETS} << 32 | (UINT32_MAX - index);
	});
	qsort(keys, n, sizeof *keys, compare_keys);
	for (uint32_t i = 0; i < n; i++)
		order[i] = UINT32_MAX - static_cast<uint32_t>(keys[i]);
	free(keys);
	t->ordered = n;
	return true;
}

void
baseline(client_usage_entry *e, uint64_t first, uint64_t second)
{
	e->last_second = second;
	e->last_first = first;
	e->fresh = 0;
	e->touched = 1;
}

void
add_sample(client_usage_table *t, const char *text, uint32_t ip, uint64_t first, uint64_t second,
	   uint64_t mac, uint32_t tag, uint32_t kind)
{
	client_usage_entry *e = client_usage_find(t, ip, mac, tag);
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
		make_current(t, ip, e);
	}
	e->acc_second += d_second;
	t->tick_second += d_second;
	e->acc_first += d_first;
	t->tick_first += d_first;
	baseline(e, first, second);
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
	for (client_usage_table &t : set->tables) {
		if (t.heads != t.small_heads)
			free(t.heads);
		free(t.order);
	}
	free(set);
}

int
client_insert(client_usage_table *t, const char *text, uint32_t ip, uint32_t kind,
	      uint64_t first, uint64_t second, uint64_t mac, uint32_t tag, bool restore)
{
	if (t->count >= max_load * head_count(t) && !grow_heads(t))
		return 1;
	uint32_t index = client_pool_take();
	if (index == CLIENT_NO_ENTRY)
		return 1;
	client_usage_entry *e = entry_at(index);
	if (text != nullptr)
		client_pool_set_address(index, text);
	else
		e->ip = ip;
	e->mac = mac;
	e->tag = tag;
	e->fresh = 1;
	if (restore) {
		e->kind = kind & 7;
		e->acc_first = first;
		e->acc_second = second;
	} else {
		e->kind = 1;
		if (current_holder(t, ip) != nullptr) {
			e->last_second = second;
			e->last_first = first;
		}
		make_current(t, ip, e);
	}
	chain_push(t, index);
	t->count++;
	e->touched = 1;
	return 0;
}

void
add_client_usage(client_usage_table *table, const char *ip_text, uint64_t first, uint64_t second,
		 uint64_t mac, uint32_t tag, uint32_t kind)
{
	uint32_t ip = 0;
	(void)client_parse_ip(ip_text, &ip);
	add_sample(table, ip_text, ip, first, second, mac, tag, kind);
}

void
add_client_usage_addr(client_usage_table *table, uint32_t ip, uint64_t first, uint64_t second,
		      uint64_t mac, uint32_t tag, uint32_t kind)
{
	add_sample(table, nullptr, ip, first, second, mac, tag, kind);
}

client_usage_entry *
client_usage_find(const client_usage_table *table, uint32_t ip, uint64_t mac, uint32_t tag)
{
	client_usage_entry *found = nullptr;
	for_chain(table, ip, [&](client_usage_entry *e) {
		if (found == nullptr && e->ip == ip && e->mac == mac && e->tag == tag)
			found = e;
	});
	return found;
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

// Without memory for the order, the entries are listed as the table holds
// them: every figure is still there.
void
client_usage_listed(client_usage_table *table, std::vector<const client_usage_entry *> *out)
{
	constexpr uint64_t at_least = 1024; // a client is listed from 1 KiB on
	out->clear();
	auto take = [out](uint32_t, const client_usage_entry *e) {
		if (e->touched && (e->acc_first >= at_least || e->acc_second >= at_least))
			out->push_back(e);
	};
	if (!keep_order(table)) {
		for_all(table, take);
		return;
	}
	for (uint32_t i = 0; i < table->ordered; i++)
		take(table->order[i], entry_at(table->order[i]));
}
