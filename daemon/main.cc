// tally: start-up, signal handlers, the 30-second tick and the backup
// cadence. All work runs in the main loop; handlers only set flags.
#include "daemon/base/clock.h"
#include "daemon/base/fs.h"
#include "daemon/base/log.h"
#include "daemon/base/paths.h"
#include "daemon/registry.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned tick_seconds = 30;
constexpr int backup_passes = 61;       // loop passes between full backups
constexpr rlim_t core_limit = 0x800000; // bytes, soft and hard
constexpr int min_wan_count = 2;

volatile sig_atomic_t tick_pending;
volatile sig_atomic_t tick_count; // loop passes since the last full backup
volatile sig_atomic_t backup_requested;

void
on_alarm(int)
{
	tick_pending = 1;
}

void
on_hangup(int)
{
	tick_pending = 1;
	tick_count = backup_passes;
}

void
on_user1(int)
{
	tick_count = 0;
	backup_requested = 1;
}

void
on_pipe(int)
{
}

void
on_terminate(int)
{
	(void)unlink(PID_FILE);
	exit(0);
}

void
remove_pid_file()
{
	(void)unlink(PID_FILE);
}

void
set_core_limit()
{
	struct rlimit limit = {core_limit, core_limit};
	(void)setrlimit(RLIMIT_CORE, &limit);
}

// An unreadable value counts as 0; there is no upper bound.
int
read_wan_count()
{
	FILE *f = fopen(WAN_COUNT_FILE, "r");
	if (f == nullptr)
		return min_wan_count;
	int count = 0;
	(void)fscanf(f, "%d", &count);
	fclose(f);
	return count < min_wan_count ? min_wan_count : count;
}

// The platform's restore command leaves its marker directory behind; any
// other state of the path means saved usage has not been loaded yet.
void
restore_saved_usage()
{
	struct stat st;
	if (stat(RESTORE_MARKER_DIR, &st) != 0 || !S_ISDIR(st.st_mode))
		(void)system(RESTORE_COMMAND);
}

void
write_pid_file()
{
	FILE *f = fopen(PID_FILE, "w");
	if (f == nullptr)
		return;
	fprintf(f, "%d\n", static_cast<int>(getpid()));
	fclose(f);
}

// A time text that does not fit (a time zone with a very long name) is
// left out rather than logged cut.
void
log_start()
{
	time_t t = time(nullptr);
	struct tm tm;
	char when[256];
	localtime_r(&t, &tm);
	if (strftime(when, sizeof when, "%c %Z(%z)", &tm) == 0)
		when[0] = '\0';
	log_notice("starting Corvane Usage Monitor (tally). %s", when);
}

void
remove_stale_wan_files(int wan_count)
{
	for (int wan = 1; wan <= wan_count; wan++) {
		for (const char *pattern : STALE_WAN_FILES) {
			char path[128];
			snprintf(path, sizeof path, pattern, wan);
			(void)unlink(path);
		}
	}
}

void
client_usage_cleanup_history_files()
{
	for (const char *command : OBSOLETE_CLIENT_DIR_COMMANDS)
		(void)system(command);
}

// Whatever mask the daemon inherited, the signals it answers get through;
// every other blocked signal stays blocked.
void
unblock_handled_signals()
{
	static const int handled[] = {SIGHUP, SIGUSR1, SIGINT, SIGTERM, SIGALRM, SIGPIPE};
	sigset_t mask;
	sigprocmask(SIG_SETMASK, nullptr, &mask);
	for (int sig : handled)
		sigdelset(&mask, sig);
	sigprocmask(SIG_SETMASK, &mask, nullptr);
}

// Re-installed on every pass so that one-shot handler semantics are harmless.
void
install_loop_handlers()
{
	signal(SIGALRM, on_alarm);
	signal(SIGHUP, on_hangup);
	signal(SIGUSR1, on_user1);
}

// The trailing & returns at once; the save runs detached.
int
save_backup()
{
	char command[128];
	snprintf(command, sizeof command, "%s usage &", SAVECONFIG_COMMAND);
	(void)system(command);
	tick_count = 0;
	return 0;
}

// A SIGALRM between the flag tests and pause() leaves the loop waiting for
// the next signal, since only a tick re-arms the alarm. Accepted: any
// later signal resumes the cadence.
[[noreturn]] void
run_loop(sw_usage_registry *registry)
{
	for (;;) {
		if (tick_pending) {
			alarm(0);
			compute_tick_bounds();
			tally_sw_usage_update(registry);
			alarm(tick_seconds);
			tick_pending = 0;
		}
		if (tick_count >= backup_passes) {
			tally_sw_backup_usage(registry->vlans);
			save_backup();
			tick_count = 0;
			if (backup_requested) {
				tally_sw_backup_usage(registry->vlans);
				backup_requested = 0;
			}
		} else if (backup_requested) {
			tally_sw_backup_usage(registry->vlans);
			backup_requested = 0;
		}
		tick_count = tick_count + 1;
		install_loop_handlers();
		pause();
	}
}

} // namespace

int
main()
{
	set_core_limit();
	int wan_count = read_wan_count();
	restore_saved_usage();
	write_pid_file();
	atexit(remove_pid_file);
	log_start();
	remove_stale_wan_files(wan_count);
	client_usage_cleanup_history_files();

	signal(SIGINT, on_terminate);
	signal(SIGTERM, on_terminate);
	signal(SIGPIPE, on_pipe);
	unblock_handled_signals();

	sw_usage_registry *registry = tally_sw_usage_init();
	if (registry == nullptr)
		return 1;
	(void)recursive_remove(RESTORE_MARKER_DIR);

	install_loop_handlers();
	alarm(tick_seconds);
	run_loop(registry);
}
