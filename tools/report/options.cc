// tally-report's command line. Options may come anywhere among the words
// of the view, as "--name value" or "--name=value"; the last of a kind wins.
#include "tools/report/options.h"

#include "daemon/base/paths.h"

#include <arpa/inet.h>
#include <cctype>
#include <cinttypes>
#include <cstdarg>
#include <cstring>

namespace {

const char usage_text[] =
	"Usage: tally-report [hourly|daily|monthly [VLAN]] [OPTION]...\n"
	"       tally-report clients VLAN [DATE] [OPTION]...\n"
	"Shows the traffic usage that tally publishes. With no view: each VLAN's\n"
	"running hour, day and month, then all VLANs together. hourly, daily,\n"
	"monthly: the history of a VLAN, or of all VLANs. clients: a VLAN's clients\n"
	"in the running period, or in DATE (2026-11-21-14, 2026-11-21, 2026-11-01).\n"
	"\n"
	"  --root DIR                 the tree to read [%s]\n"
	"  --kib                      amounts in exact KiB, not in KiB, MiB, GiB, TiB\n"
	"  --json, --csv              JSON or CSV, amounts in KiB\n"
	"  --prometheus               Prometheus text format, amounts in bytes\n"
	"  --counters NAME,NAME       names of the first and second counter\n"
	"                             [first,second]\n"
	"  --hour, --day, --month     the clients' period [--day]\n"
	"  --sort first|second|sum    the clients' order, largest first [sum]\n"
	"  --top N                    only the first N clients\n"
	"  --client ADDR[/BITS]|MAC   only the clients of that address, range or MAC\n"
	"  --help                     this text\n"
	"\n"
	"Exit status: 0 when shown, 1 when the tree, the VLAN or the period is\n"
	"missing, 2 on a usage error.\n";

enum option_id {
	OPT_ROOT,
	OPT_KIB,
	OPT_JSON,
	OPT_CSV,
	OPT_PROMETHEUS,
	OPT_COUNTERS,
	OPT_HOUR,
	OPT_DAY,
	OPT_MONTH,
	OPT_SORT,
	OPT_TOP,
	OPT_CLIENT,
	OPT_HELP,
};

struct option_spec {
	const char *name;
	option_id id;
	bool takes_value;
	bool clients_only;
};

const option_spec option_specs[] = {
	{"--root", OPT_ROOT, true, false},
	{"--kib", OPT_KIB, false, false},
	{"--json", OPT_JSON, false, false},
	{"--csv", OPT_CSV, false, false},
	{"--prometheus", OPT_PROMETHEUS, false, false},
	{"--counters", OPT_COUNTERS, true, false},
	{"--hour", OPT_HOUR, false, true},
	{"--day", OPT_DAY, false, true},
	{"--month", OPT_MONTH, false, true},
	{"--sort", OPT_SORT, true, true},
	{"--top", OPT_TOP, true, true},
	{"--client", OPT_CLIENT, true, true},
	{"--help", OPT_HELP, false, false},
};

const char *const order_names[] = {"first", "second", "sum"};
const char *const period_article[REPORT_PERIODS] = {"an", "a", "a"};
const char *const date_shape[REPORT_PERIODS] = {"YYYY-MM-DD-HH", "YYYY-MM-DD", "YYYY-MM-01"};
constexpr uint64_t max_top = 1000000000;
constexpr int max_words = 3; // clients VLAN DATE
constexpr unsigned address_bits = 32;

struct parse_state {
	report_options *o;
	const char *words[max_words];
	int word_count;
	const char *clients_only; // the first option that only the clients view takes
	bool period_given;
	bool help;
};

__attribute__((format(printf, 1, 2))) report_parse_result
usage_error(const char *format, ...)
{
	va_list ap;
	va_start(ap, format);
	report_vmessage(format, ap);
	va_end(ap);
	return REPORT_PARSE_ERROR;
}

bool
parse_name(const char *text, size_t length, char name[REPORT_NAME_MAX + 1])
{
	if (length == 0 || length > REPORT_NAME_MAX)
		return false;
	for (size_t i = 0; i < length; i++)
		if (!isalnum(static_cast<unsigned char>(text[i])) && text[i] != '_' && text[i] != '-')
			return false;
	memcpy(name, text, length);
	name[length] = '\0';
	return true;
}

bool
parse_counters(const char *text, report_style *style)
{
	const char *comma = strchr(text, ',');
	return comma != nullptr &&
	       parse_name(text, static_cast<size_t>(comma - text), style->names[0]) &&
	       parse_name(comma + 1, strlen(comma + 1), style->names[1]) &&
	       strcmp(style->names[0], style->names[1]) != 0;
}

// A MAC, an address, or an address and the number of its leading bits.
bool
parse_filter(const char *text, report_filter *f)
{
	if (report_is_mac(text)) {
		f->kind = REPORT_MAC;
		memcpy(f->mac, text, sizeof f->mac);
		return true;
	}
	char address[16];
	const char *slash = strchr(text, '/');
	size_t length = slash == nullptr ? strlen(text) : static_cast<size_t>(slash - text);
	uint64_t bits = address_bits;
	in_addr addr;
	if (length >= sizeof address ||
	    (slash != nullptr && !report_parse_number(slash + 1, address_bits, &bits)))
		return false;
	memcpy(address, text, length);
	address[length] = '\0';
	if (inet_pton(AF_INET, address, &addr) != 1)
		return false;
	f->kind = REPORT_ADDRESSES;
	f->mask = bits == 0 ? 0 : UINT32_MAX << (address_bits - bits);
	f->addr = ntohl(addr.s_addr) & f->mask;
	return true;
}

bool
parse_order(const char *text, report_order *order)
{
	for (int i = 0; i < 3; i++)
		if (strcmp(text, order_names[i]) == 0) {
			*order = static_cast<report_order>(i);
			return true;
		}
	return false;
}

report_parse_result
set_option(parse_state *s, const option_spec &spec, const char *value)
{
	report_options *o = s->o;
	uint64_t top;
	switch (spec.id) {
	case OPT_ROOT:
		o->root = value;
		break;
	case OPT_KIB:
		o->format = &report_table;
		o->style.exact_kib = true;
		break;
	case OPT_JSON:
		o->format = &report_json;
		break;
	case OPT_CSV:
		o->format = &report_csv;
		break;
	case OPT_PROMETHEUS:
		o->format = &report_prometheus;
		break;
	case OPT_COUNTERS:
		if (!parse_counters(value, &o->style))
			return usage_error("--counters wants two different names of letters, digits, "
					   "'_' or '-', at most %zu each, with a comma between, not '%s'",
					   REPORT_NAME_MAX, value);
		break;
	case OPT_HOUR:
	case OPT_DAY:
	case OPT_MONTH:
		o->period = static_cast<report_period>(REPORT_HOUR + (spec.id - OPT_HOUR));
		s->period_given = true;
		break;
	case OPT_SORT:
		if (!parse_order(value, &o->order))
			return usage_error("--sort wants first, second or sum, not '%s'", value);
		break;
	case OPT_TOP:
		if (!report_parse_number(value, max_top, &top) || top == 0)
			return usage_error("--top wants a number from 1 to %" PRIu64 ", not '%s'", max_top,
					   value);
		o->top = static_cast<size_t>(top);
		break;
	case OPT_CLIENT:
		if (!parse_filter(value, &o->filter))
			return usage_error("--client wants an address, an address/BITS or a MAC, not '%s'",
					   value);
		break;
	case OPT_HELP:
		s->help = true;
		break;
	}
	if (spec.clients_only && s->clients_only == nullptr)
		s->clients_only = spec.name;
	return REPORT_PARSE_RUN;
}

report_parse_result
take_option(parse_state *s, int argc, char **argv, int *i)
{
	const char *arg = argv[*i];
	const char *eq = strchr(arg, '=');
	size_t length = eq == nullptr ? strlen(arg) : static_cast<size_t>(eq - arg);
	for (const option_spec &spec : option_specs) {
		if (strlen(spec.name) != length || strncmp(arg, spec.name, length) != 0)
			continue;
		if (!spec.takes_value && eq != nullptr)
			return usage_error("%s takes no value", spec.name);
		const char *value = eq != nullptr ? eq + 1 : nullptr;
		if (spec.takes_value && value == nullptr && *i + 1 < argc)
			value = argv[++*i];
		if (spec.takes_value && value == nullptr)
			return usage_error("%s wants a value", spec.name);
		return set_option(s, spec, value);
	}
	return usage_error("unknown option '%.*s'", static_cast<int>(length), arg);
}

bool
parse_vlan(const char *text, int *vlan)
{
	uint64_t n;
	if (!report_parse_number(text, REPORT_MAX_VLAN, &n))
		return false;
	*vlan = static_cast<int>(n);
	return true;
}

// The clients' DATE names its period by its shape, but a month's first day
// is also a day: --month tells them apart.
report_parse_result
take_date(parse_state *s, const char *date)
{
	report_options *o = s->o;
	if (!s->period_given)
		o->period = report_is_date(date, REPORT_HOUR) ? REPORT_HOUR : REPORT_DAY;
	if (!report_is_date(date, o->period))
		return usage_error("'%s' does not name %s %s (%s)", date, period_article[o->period],
				   report_period_name[o->period], date_shape[o->period]);
	o->date = date;
	return REPORT_PARSE_RUN;
}

report_parse_result
take_view(parse_state *s)
{
	report_options *o = s->o;
	const char *const *w = s->words;
	if (s->word_count == 0)
		return REPORT_PARSE_RUN;
	if (strcmp(w[0], "clients") == 0) {
		o->view = REPORT_CLIENTS;
		if (s->word_count < 2)
			return usage_error("clients wants a VLAN");
		if (!parse_vlan(w[1], &o->vlan))
			return usage_error("'%s' is no VLAN", w[1]);
		return s->word_count == 3 ? take_date(s, w[2]) : REPORT_PARSE_RUN;
	}
	for (int p = 0; p < REPORT_PERIODS; p++)
		if (strcmp(w[0], report_history_name[p]) == 0) {
			o->view = REPORT_HISTORY;
			o->period = static_cast<report_period>(p);
			if (s->word_count > 2)
				return usage_error("unexpected '%s'", w[2]);
			if (s->word_count == 2 && !parse_vlan(w[1], &o->vlan))
				return usage_error("'%s' is no VLAN", w[1]);
			return REPORT_PARSE_RUN;
		}
	return usage_error("unknown view '%s'", w[0]);
}

} // namespace

report_parse_result
report_parse_options(int argc, char **argv, report_options *o)
{
	*o = report_options{};
	o->root = RUN_ROOT;
	o->vlan = REPORT_TOTALS;
	o->period = REPORT_DAY;
	o->format = &report_table;
	// The counters' neutral names are those that --sort takes.
	strcpy(o->style.names[0], order_names[REPORT_BY_FIRST]);
	strcpy(o->style.names[1], order_names[REPORT_BY_SECOND]);
	o->order = REPORT_BY_SUM;
	parse_state s{o, {}, 0, nullptr, false, false};
	for (int i = 1; i < argc; i++) {
		report_parse_result r = REPORT_PARSE_RUN;
		if (argv[i][0] == '-')
			r = take_option(&s, argc, argv, &i);
		else if (s.word_count < max_words)
			s.words[s.word_count++] = argv[i];
		else
			r = usage_error("unexpected '%s'", argv[i]);
		if (r != REPORT_PARSE_RUN)
			return r;
	}
	if (s.help)
		return REPORT_PARSE_HELP;
	report_parse_result r = take_view(&s);
	if (r == REPORT_PARSE_RUN && o->view != REPORT_CLIENTS && s.clients_only != nullptr)
		return usage_error("%s is for the clients view only", s.clients_only);
	return r;
}

void
report_print_usage(FILE *f)
{
	fprintf(f, usage_text, RUN_ROOT);
}
