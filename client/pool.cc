// The entries of every client table live in one pool and are never freed,
// so an entry costs its 56 bytes and no allocator overhead; a pool index is
// both the chain link and the order of insertion, which is what the client
// files need for their newest-first order.
#include "client/internal.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t chunk_bits = CLIENT_CHUNK_BITS;


// Address texts that are not the dotted form of their number (restored
// from edited files), by pool index; appended in index order, so sorted.
struct odd_text {
	uint32_t index;
	char text[16];
};

std::vector<odd_text> odd_texts;

uint32_t
index_of(const client_usage_entry *e)
{
	for (uint32_t c = 0; c < client_pool.chunk_count; c++) {
		const client_usage_entry *base = client_pool.chunks[c];
		if (e >= base && e < base + (1u << chunk_bits))
			return c << chunk_bits | static_cast<uint32_t>(e - base);
	}
	return CLIENT_NO_ENTRY;
}

void
format_ip(uint32_t ip, char buffer[16])
{
	*text_ip(buffer, ip) = '\0';
}

} // namespace

client_entry_pool client_pool;

// Chunks are made as they are first needed; an entry is zeroed when taken,
// so a chunk kept over a reset serves again.
uint32_t
client_pool_take()
{
	if ((client_pool.used >> chunk_bits) == client_pool.chunk_count) {
		auto *chunk = static_cast<client_usage_entry *>(
			malloc(sizeof(client_usage_entry) << chunk_bits));
		if (chunk == nullptr)
			return CLIENT_NO_ENTRY;
		auto **chunks = static_cast<client_usage_entry **>(
			realloc(client_pool.chunks, (client_pool.chunk_count + 1) * sizeof(client_usage_entry *)));
		if (chunks == nullptr) {
			free(chunk);
			return CLIENT_NO_ENTRY;
		}
		chunks[client_pool.chunk_count++] = chunk;
		client_pool.chunks = chunks;
	}
	memset(client_pool_entry(client_pool.used), 0, sizeof(client_usage_entry));
	return client_pool.used++;
}

void
client_pool_reset()
{
	client_pool.used = 0;
	odd_texts.clear();
}

bool
client_parse_ip(const char *text, uint32_t *ip)
{
	struct in_addr a;
	if (inet_aton(text, &a) == 0)
		return false;
	*ip = ntohl(a.s_addr);
	return true;
}

// The entry's address is its text parsed again, once cut to the 15
// characters an entry keeps.
void
client_pool_set_address(uint32_t index, const char *text)
{
	client_usage_entry *e = client_pool_entry(index);
	odd_text copy = {index, {}};
	strncpy(copy.text, text, sizeof copy.text - 1);
	uint32_t ip = 0;
	bool parsed = client_parse_ip(copy.text, &ip);
	char canonical[16];
	format_ip(ip, canonical);
	e->ip = ip;
	if (parsed && strcmp(canonical, copy.text) == 0)
		return;
	odd_texts.push_back(copy);
	e->odd_text = 1;
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
