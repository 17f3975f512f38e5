// tally-statgen: stands in for the appliance's sFlow agent. Each call is one
// agent interval and writes a whole statistics file whose counters have grown
// since the previous call, which a small state file remembers.
#include "client/sflow.h"
#include "tests/support/sflow_encode.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const char usage_text[] =
	"Usage: tally-statgen --out FILE [options]\n"
	"Writes a statistics file as the appliance's sFlow agent does each interval.\n"
	"With --state every call is the agent's next interval.\n"
	"\n"
	"  --out FILE             the statistics file; replaced atomically (temporary\n"
	"                         file in the same directory, then rename)\n"
	"  --state FILE           counters and moves kept between calls; the first call\n"
	"                         creates it. Without it every call is the first\n"
	"  --hosts N              stations, one host descriptor and MAC each [4]\n"
	"  --records-per-host K   records per station, each with its own address [1]\n"
	"  --vlans V              VLANs the records are dealt over in turn [1]\n"
	"  --first-vlan F         VLANs F..F+V-1 rather than V seeded ones in 1..4095\n"
	"  --seed S               seeds addresses, MACs, tags, VLANs, counter bases [1]\n"
	"  --rate BYTES           growth of every first counter per call [1000]\n"
	"  --second-rate BYTES    growth of every second counter per call [rate / 2]\n"
	"  --restart              the agent restarted: every counter is 0 on this call\n"
	"                         and grows from 0 on later calls\n"
	"  --invalid N            N more records with valid = 0, on this call only [0]\n"
	"  --move R               from this call on, record R's address is seen on the\n"
	"                         next station's MAC, counters carried over; record R\n"
	"                         is station R / K's (R mod K)-th. Repeatable\n"
	"  --help                 this text\n"
	"\n"
	"Record R is on the (R mod V)-th VLAN, in ascending order. Addresses are\n"
	"distinct, in 10.0.0.0/8; MACs are distinct and locally administered.\n";

constexpr uint64_t max_records = 1 << 24; // distinct addresses in 10.0.0.0/8
constexpr uint32_t address_prefix = 0x0A000000;
constexpr uint64_t mac_prefix = 0x020000000000; // locally administered, unicast
constexpr uint64_t mac_space = 1ull << 40;
constexpr unsigned tag_count = 8;
constexpr unsigned counter_base_bits = 36; // past 32 bits, to catch truncation

struct move {
	uint32_t record;
	uint32_t host;
};

struct options {
	const char *out = nullptr;
	const char *state = nullptr;
	uint64_t hosts = 4;
	uint64_t records_per_host = 1;
	uint64_t vlans = 1;
	uint64_t first_vlan = 0;
	bool has_first_vlan = false;
	uint64_t seed = 1;
	uint64_t rate = 1000;
	uint64_t second_rate = 0;
	bool has_second_rate = false;
	bool restart = false;
	uint64_t invalid = 0;
	std::vector<uint32_t> moves;
	bool help = false;
};

// What carries over from one interval to the next.
struct agent_state {
	uint64_t calls = 0;
	uint64_t first_growth = 0; // bytes added since the start or the last restart
	uint64_t second_growth = 0;
	bool restarted = false; // counters count from 0, not from their seeded bases
	std::vector<move> moves;
};

// The records of one call, grouped by station.
struct layout {
	uint64_t valid_count;
	uint64_t total;
	std::vector<uint32_t> host_of;    // per record
	std::vector<uint32_t> host_count; // records per station
	std::vector<uint32_t> order;      // record numbers, station by station
};

enum draw_kind : uint64_t {
	DRAW_ADDRESS_STEP,
	DRAW_ADDRESS_START,
	DRAW_MAC_STEP,
	DRAW_MAC_START,
	DRAW_VLAN,
	DRAW_TAG,
	DRAW_FIRST_BASE,
	DRAW_SECOND_BASE,
};

// splitmix64's finaliser: every record's values come straight from its
// number, so they do not shift when other options change.
uint64_t
mix(uint64_t x)
{
	x += 0x9E3779B97F4A7C15ull;
	x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
	x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
	return x ^ (x >> 31);
}

uint64_t
draw(const options &o, draw_kind kind, uint64_t index)
{
	return mix(mix(o.seed ^ mix(kind)) + index);
}

// An odd step makes r -> r * step + start a permutation modulo a power of
// two, so addresses and MACs never repeat.
uint32_t
address_of(const options &o, uint64_t record)
{
	uint64_t step = draw(o, DRAW_ADDRESS_STEP, 0) | 1;
	uint64_t n = record * step + draw(o, DRAW_ADDRESS_START, 0);
	return address_prefix | static_cast<uint32_t>(n % max_records);
}

uint64_t
mac_of(const options &o, uint64_t host)
{
	uint64_t step = draw(o, DRAW_MAC_STEP, 0) | 1;
	return mac_prefix | (host * step + draw(o, DRAW_MAC_START, 0)) % mac_space;
}

std::vector<uint16_t>
vlan_set(const options &o)
{
	std::vector<uint16_t> vlans;
	if (o.has_first_vlan) {
		for (uint64_t i = 0; i < o.vlans; i++)
			vlans.push_back(static_cast<uint16_t>(o.first_vlan + i));
		return vlans;
	}
	// A partial shuffle of 1..4095 draws V distinct numbers.
	std::vector<uint16_t> pool;
	for (uint16_t v = 1; v <= 4095; v++)
		pool.push_back(v);
	for (uint64_t i = 0; i < o.vlans; i++)
		std::swap(pool[i], pool[i + draw(o, DRAW_VLAN, i) % (pool.size() - i)]);
	vlans.assign(pool.begin(), pool.begin() + static_cast<long>(o.vlans));
	std::sort(vlans.begin(), vlans.end());
	return vlans;
}

[[noreturn]] __attribute__((format(printf, 1, 2))) void
usage_error(const char *fmt, ...)
{
	va_list ap;
	va_start(ap, fmt);
	fputs("tally-statgen: ", stderr);
	vfprintf(stderr, fmt, ap);
	fputs(" (see --help)\n", stderr);
	va_end(ap);
	exit(2);
}

uint64_t
parse_number(const std::string &name, const char *text, uint64_t min, uint64_t max)
{
	char *end;
	errno = 0;
	unsigned long long n = strtoull(text, &end, 10);
	// strtoull takes a sign and white space; a count must be plain digits.
	if (*text < '0' || *text > '9' || *end != '\0' || errno != 0 || n < min || n > max)
		usage_error("%s wants a number from %" PRIu64 " to %" PRIu64 ", not '%s'", name.c_str(),
			    min, max, text);
	return n;
}

const char *const value_options[] = {
	"--out", "--state", "--hosts", "--records-per-host", "--vlans", "--first-vlan",
	"--seed", "--rate", "--second-rate", "--invalid", "--move",
};

bool
takes_value(const std::string &name)
{
	return std::find(std::begin(value_options), std::end(value_options), name) !=
	       std::end(value_options);
}

void
set_option(options *o, const std::string &name, const char *value)
{
	if (name == "--out")
		o->out = value;
	else if (name == "--state")
		o->state = value;
	else if (name == "--hosts")
		o->hosts = parse_number(name, value, 0, max_records);
	else if (name == "--records-per-host")
		o->records_per_host = parse_number(name, value, 0, max_records);
	else if (name == "--vlans")
		o->vlans = parse_number(name, value, 1, 4095);
	else if (name == "--first-vlan")
		o->first_vlan = parse_number(name, value, 0, UINT16_MAX);
	else if (name == "--seed")
		o->seed = parse_number(name, value, 0, UINT64_MAX);
	else if (name == "--rate")
		o->rate = parse_number(name, value, 0, UINT64_MAX);
	else if (name == "--second-rate")
		o->second_rate = parse_number(name, value, 0, UINT64_MAX);
	else if (name == "--invalid")
		o->invalid = parse_number(name, value, 0, max_records);
	else if (name == "--move")
		o->moves.push_back(static_cast<uint32_t>(parse_number(name, value, 0, max_records)));
	o->has_first_vlan |= name == "--first-vlan";
	o->has_second_rate |= name == "--second-rate";
}

// Takes "--name value" and "--name=value".
options
parse_options(int argc, char **argv)
{
	options o;
	for (int i = 1; i < argc; i++) {
		std::string name = argv[i];
		if (name == "--help") {
			o.help = true;
			continue;
		}
		if (name == "--restart") {
			o.restart = true;
			continue;
		}
		size_t eq = name.find('=');
		const char *value = eq != std::string::npos ? argv[i] + eq + 1 : nullptr;
		if (eq != std::string::npos)
			name.resize(eq);
		if (!takes_value(name))
			usage_error("unknown option '%s'", name.c_str());
		if (value == nullptr && i + 1 < argc)
			value = argv[++i];
		if (value == nullptr)
			usage_error("%s needs a value", name.c_str());
		set_option(&o, name, value);
	}
	if (!o.has_second_rate)
		o.second_rate = o.rate / 2;
	return o;
}

// Limits that only the options together show.
void
check_options(const options &o)
{
	if (o.out == nullptr)
		usage_error("--out FILE is required");
	if (o.has_first_vlan && o.first_vlan + o.vlans - 1 > UINT16_MAX)
		usage_error("--first-vlan: the VLANs would pass 65535");
	// Both at most 2^24: the product cannot overflow.
	if (o.hosts * o.records_per_host + o.invalid > max_records)
		usage_error("more than 16777216 records in all");
	if (o.invalid > 0 && o.hosts == 0)
		usage_error("--invalid needs at least one station");
	for (uint32_t r : o.moves) {
		if (o.hosts < 2)
			usage_error("--move needs at least two stations");
		if (r >= o.hosts * o.records_per_host)
			usage_error("--move %" PRIu32 ": no such record", r);
	}
}

// Reports its own failure: a line it does not know, or the reason the file
// could not be read.
bool
load_state(const char *path, agent_state *s)
{
	FILE *f = fopen(path, "r");
	if (f == nullptr && errno == ENOENT)
		return true; // the first call
	if (f == nullptr) {
		fprintf(stderr, "tally-statgen: cannot read %s: %s\n", path, strerror(errno));
		return false;
	}
	char line[128];
	bool ok = true;
	while (ok && fgets(line, sizeof line, f) != nullptr) {
		unsigned long long a, b;
		if (sscanf(line, "calls %llu", &a) == 1)
			s->calls = a;
		else if (sscanf(line, "first %llu", &a) == 1)
			s->first_growth = a;
		else if (sscanf(line, "second %llu", &a) == 1)
			s->second_growth = a;
		else if (sscanf(line, "restarted %llu", &a) == 1)
			s->restarted = a != 0;
		else if (sscanf(line, "move %llu %llu", &a, &b) == 2)
			s->moves.push_back({static_cast<uint32_t>(a), static_cast<uint32_t>(b)});
		else
			ok = false;
	}
	if (!ok)
		fprintf(stderr, "tally-statgen: %s is not a state file: '%.*s'\n", path,
			static_cast<int>(strcspn(line, "\n")), line);
	else if (ferror(f))
		fprintf(stderr, "tally-statgen: cannot read %s: %s\n", path, strerror(errno));
	ok = ok && !ferror(f);
	fclose(f);
	return ok;
}

std::string
format_state(const agent_state &s)
{
	char line[128];
	std::string text;
	snprintf(line, sizeof line, "calls %" PRIu64 "\nfirst %" PRIu64 "\nsecond %" PRIu64 "\nrestarted %d\n",
		 s.calls, s.first_growth, s.second_growth, s.restarted ? 1 : 0);
	text += line;
	for (const move &m : s.moves) {
		snprintf(line, sizeof line, "move %" PRIu32 " %" PRIu32 "\n", m.record, m.host);
		text += line;
	}
	return text;
}

// One interval passes: counters grow, or start again from 0.
void
advance(const options &o, agent_state *s)
{
	s->calls++;
	if (o.restart) {
		s->restarted = true;
		s->first_growth = 0;
		s->second_growth = 0;
	} else {
		s->first_growth += o.rate;
		s->second_growth += o.second_rate;
	}
}

// Valid records go to their stations in blocks of K, invalid ones are dealt
// round the stations, then the moves so far are replayed. This call's moves
// join the state so later calls keep them.
layout
lay_out(const options &o, agent_state *s)
{
	layout l;
	l.valid_count = o.hosts * o.records_per_host;
	l.total = l.valid_count + o.invalid;
	l.host_of.resize(l.total);
	for (uint64_t r = 0; r < l.valid_count; r++)
		l.host_of[r] = static_cast<uint32_t>(r / o.records_per_host);
	for (uint64_t i = 0; i < o.invalid; i++)
		l.host_of[l.valid_count + i] = static_cast<uint32_t>(i % o.hosts);
	for (const move &m : s->moves)
		if (m.record < l.valid_count)
			l.host_of[m.record] = static_cast<uint32_t>(m.host % o.hosts);
	for (uint32_t r : o.moves) {
		uint32_t to = static_cast<uint32_t>((l.host_of[r] + 1) % o.hosts);
		l.host_of[r] = to;
		s->moves.push_back({r, to});
	}
	// A stable counting sort keeps each station's records in record order.
	l.host_count.assign(o.hosts, 0);
	for (uint32_t h : l.host_of)
		l.host_count[h]++;
	std::vector<uint32_t> next(o.hosts, 0);
	for (uint64_t h = 1; h < o.hosts; h++)
		next[h] = next[h - 1] + l.host_count[h - 1];
	l.order.resize(l.total);
	for (uint64_t r = 0; r < l.total; r++)
		l.order[next[l.host_of[r]]++] = static_cast<uint32_t>(r);
	return l;
}

sflow_record
make_record(const options &o, const agent_state &s, const std::vector<uint16_t> &vlans,
	    const layout &l, uint32_t r)
{
	sflow_record rec;
	rec.vlan = vlans[r % vlans.size()];
	rec.tag = static_cast<uint16_t>(draw(o, DRAW_TAG, r) % tag_count);
	rec.valid = r < l.valid_count ? 1 : 0;
	rec.ip = address_of(o, r);
	uint64_t first_base = s.restarted ? 0 : draw(o, DRAW_FIRST_BASE, r) >> (64 - counter_base_bits);
	uint64_t second_base = s.restarted ? 0 : draw(o, DRAW_SECOND_BASE, r) >> (64 - counter_base_bits);
	rec.first_counter = first_base + s.first_growth;
	rec.second_counter = second_base + s.second_growth;
	return rec;
}

// The whole file, in a zeroed buffer so reserved bytes are 0.
uint8_t *
build_image(const options &o, const agent_state &s, const layout &l, size_t *size)
{
	uint64_t records_at = SFLOW_HEADER_SIZE + o.hosts * SFLOW_HOST_SIZE;
	*size = static_cast<size_t>(records_at + l.total * SFLOW_RECORD_SIZE);
	auto *image = static_cast<uint8_t *>(calloc(*size, 1));
	if (image == nullptr)
		return nullptr;
	sflow_encode_header({SFLOW_MAGIC, static_cast<uint32_t>(o.hosts)}, image);
	uint64_t offset = records_at;
	for (uint64_t h = 0; h < o.hosts; h++) {
		sflow_host host;
		uint64_t mac = mac_of(o, h);
		for (int i = 0; i < 6; i++) // most significant first, as the agent stores it
			host.mac[i] = static_cast<uint8_t>(mac >> (40 - 8 * i));
		host.record_count = l.host_count[h];
		host.record_offset = static_cast<uint32_t>(offset);
		sflow_encode_host(host, image + SFLOW_HEADER_SIZE + h * SFLOW_HOST_SIZE);
		offset += l.host_count[h] * SFLOW_RECORD_SIZE;
	}
	std::vector<uint16_t> vlans = vlan_set(o);
	uint8_t *p = image + records_at;
	for (uint32_t r : l.order) {
		sflow_encode_record(make_record(o, s, vlans, l, r), p);
		p += SFLOW_RECORD_SIZE;
	}
	return image;
}

// The daemon may read at any moment: it must find the old file or the new
// one, never a part of one.
bool
write_atomically(const char *path, const void *data, size_t size)
{
	std::string temp = std::string(path) + ".XXXXXX";
	int fd = mkstemp(&temp[0]);
	if (fd < 0)
		return false;
	FILE *f = fdopen(fd, "wb");
	if (f == nullptr) {
		close(fd);
		unlink(temp.c_str());
		return false;
	}
	bool ok = fchmod(fd, 0644) == 0 && fwrite(data, 1, size, f) == size;
	ok = fclose(f) == 0 && ok;
	if (ok && rename(temp.c_str(), path) == 0)
		return true;
	int saved = errno;
	unlink(temp.c_str());
	errno = saved;
	return false;
}

} // namespace

int
main(int argc, char **argv)
{
	options o = parse_options(argc, argv);
	if (o.help) {
		fputs(usage_text, stdout);
		return 0;
	}
	check_options(o);

	agent_state s;
	if (o.state != nullptr && !load_state(o.state, &s))
		return 1;
	advance(o, &s);
	layout l = lay_out(o, &s);
	size_t size;
	uint8_t *image = build_image(o, s, l, &size);
	if (image == nullptr) {
		fprintf(stderr, "tally-statgen: no memory for %zu bytes\n", size);
		return 1;
	}
	bool written = write_atomically(o.out, image, size);
	free(image);
	if (!written) {
		fprintf(stderr, "tally-statgen: cannot write %s: %s\n", o.out, strerror(errno));
		return 1;
	}
	// Saved only once the file is out, so a failed call can simply be repeated.
	std::string state = format_state(s);
	if (o.state != nullptr && !write_atomically(o.state, state.data(), state.size())) {
		fprintf(stderr, "tally-statgen: cannot write %s: %s\n", o.state, strerror(errno));
		return 1;
	}
	return 0;
}
