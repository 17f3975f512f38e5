// Preloaded into the daemon under test: the wall clock is a number in a file
// the test rewrites, alarm() only keeps a virtual deadline, and pause() tells
// the test the daemon is idle before it waits, so ticks happen on the test's word.

// One library serves daemons built with either time_t width: the 64-bit entry
// points are declared by hand below, so this file must not be switched over.
#undef _TIME_BITS

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#if defined(__TIMESIZE) && __TIMESIZE == 32
#define FAKECLOCK_TIME64 1

// Layouts glibc uses for a 32-bit program built with a 64-bit time_t.
struct fakeclock_timespec64 {
	int64_t tv_sec;
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
	int32_t pad;
	int32_t tv_nsec;
#else
	int32_t tv_nsec;
	int32_t pad;
#endif
};

struct fakeclock_timeval64 {
	int64_t tv_sec;
	int64_t tv_usec;
};

extern "C" {
int64_t __time64(int64_t *t) noexcept;
int __clock_gettime64(clockid_t id, struct fakeclock_timespec64 *ts) noexcept;
int __gettimeofday64(struct fakeclock_timeval64 *tv, void *tz) noexcept;
}
#endif

namespace {

char clock_path[256];
char ctl_path[sizeof(sockaddr_un::sun_path)];
long long alarm_deadline; // virtual seconds, 0 when no alarm is set
unsigned long idle_sequence;

[[noreturn]] void
fail(const char *what)
{
	// Only async-signal-safe calls: the clock may be read in a handler.
	static const char prefix[] = "fakeclock: ";
	(void)!write(2, prefix, sizeof prefix - 1);
	(void)!write(2, what, strlen(what));
	(void)!write(2, "\n", 1);
	abort();
}

// Reads the file on every call so the test can move the clock between ticks.
long long
virtual_now()
{
	int saved_errno = errno;
	if (clock_path[0] == '\0')
		fail("TALLY_FAKE_CLOCK is not set");
	int fd = open(clock_path, O_RDONLY | O_CLOEXEC);
	if (fd < 0)
		fail("cannot open the clock file");
	char buf[32];
	ssize_t n = read(fd, buf, sizeof buf - 1);
	(void)close(fd);
	if (n <= 0)
		fail("cannot read the clock file");
	buf[n] = '\0';

	const char *p = buf;
	bool negative = *p == '-';
	if (negative)
		++p;
	if (*p < '0' || *p > '9')
		fail("the clock file holds no number");
	long long value = 0;
	for (; *p >= '0' && *p <= '9'; ++p)
		value = value * 10 + (*p - '0');
	errno = saved_errno;
	return negative ? -value : value;
}

// Returns a socket that can take the test's answers, or -1 outside the test.
// A fresh one per pause(): the daemon may have closed descriptors it did not open.
int
control_open()
{
	if (ctl_path[0] == '\0')
		return -1;
	int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
	if (fd < 0)
		fail("cannot create the control socket");
	sockaddr_un self;
	memset(&self, 0, sizeof self);
	self.sun_family = AF_UNIX;
	// An address of the family alone asks for an automatic abstract name.
	if (bind(fd, (const sockaddr *)&self, sizeof self.sun_family) != 0)
		fail("cannot bind the control socket");
	return fd;
}

void
control_send(int fd, const char *msg)
{
	sockaddr_un addr;
	memset(&addr, 0, sizeof addr);
	addr.sun_family = AF_UNIX;
	memcpy(addr.sun_path, ctl_path, strlen(ctl_path));
	ssize_t len = (ssize_t)strlen(msg);
	if (sendto(fd, msg, (size_t)len, 0, (const sockaddr *)&addr, sizeof addr) != len)
		fail("cannot report to the control socket");
}

// Asks whether the test sends another signal for this same wake-up.
bool
control_more(int fd)
{
	control_send(fd, "woke");
	char answer[8];
	ssize_t n = recv(fd, answer, sizeof answer, 0);
	if (n == 4 && memcmp(answer, "more", 4) == 0)
		return true;
	if (n == 4 && memcmp(answer, "done", 4) == 0)
		return false;
	fail("unexpected answer on the control socket");
}

void
copy_env(const char *name, char *dst, size_t size)
{
	const char *value = getenv(name);
	if (value == nullptr)
		return;
	if (strlen(value) >= size)
		fail("an environment path is too long");
	memcpy(dst, value, strlen(value) + 1);
}

// The daemon's shell commands must not inherit the preload: under qemu they
// are host programs and this library is built for the guest.
__attribute__((constructor)) void
fakeclock_init()
{
	copy_env("TALLY_FAKE_CLOCK", clock_path, sizeof clock_path);
	copy_env("TALLY_FAKE_CTL", ctl_path, sizeof ctl_path);
	unsetenv("LD_PRELOAD");
	unsetenv("TALLY_FAKE_CLOCK");
	unsetenv("TALLY_FAKE_CTL");
}

bool
is_realtime(clockid_t id)
{
	return id == CLOCK_REALTIME || id == CLOCK_REALTIME_COARSE;
}

template <typename Fn>
Fn
next_symbol(const char *name)
{
	void *sym = dlsym(RTLD_NEXT, name);
	if (sym == nullptr)
		fail("a clock function is missing from the C library");
	Fn fn;
	memcpy(&fn, &sym, sizeof fn);
	return fn;
}

} // namespace

extern "C" {

time_t
time(time_t *t) noexcept
{
	time_t now = (time_t)virtual_now();
	if (t != nullptr)
		*t = now;
	return now;
}

int
gettimeofday(struct timeval *tv, void *) noexcept
{
	tv->tv_sec = (time_t)virtual_now();
	tv->tv_usec = 0;
	return 0;
}

int
clock_gettime(clockid_t id, struct timespec *ts) noexcept
{
	if (!is_realtime(id)) {
		using real_fn = int (*)(clockid_t, struct timespec *);
		static real_fn real = next_symbol<real_fn>("clock_gettime");
		return real(id, ts);
	}
	ts->tv_sec = (time_t)virtual_now();
	ts->tv_nsec = 0;
	return 0;
}

#ifdef FAKECLOCK_TIME64
int64_t
__time64(int64_t *t) noexcept
{
	int64_t now = virtual_now();
	if (t != nullptr)
		*t = now;
	return now;
}

int
__gettimeofday64(struct fakeclock_timeval64 *tv, void *) noexcept
{
	if (tv != nullptr) {
		tv->tv_sec = virtual_now();
		tv->tv_usec = 0;
	}
	return 0;
}

int
__clock_gettime64(clockid_t id, struct fakeclock_timespec64 *ts) noexcept
{
	if (!is_realtime(id)) {
		using real_fn = int (*)(clockid_t, struct fakeclock_timespec64 *);
		static real_fn real = next_symbol<real_fn>("__clock_gettime64");
		return real(id, ts);
	}
	memset(ts, 0, sizeof *ts);
	ts->tv_sec = virtual_now();
	return 0;
}
#endif

// Never arms a real timer: the test delivers SIGALRM when it wants a tick.
unsigned int
alarm(unsigned int seconds) noexcept
{
	long long now = virtual_now();
	unsigned int left = alarm_deadline > now ? (unsigned int)(alarm_deadline - now) : 0;
	alarm_deadline = seconds != 0 ? now + seconds : 0;
	return left;
}

// Signals stay blocked from before the report until sigsuspend() waits, so a
// signal the test sends as soon as it reads the report cannot be lost. After
// each wake-up the test may send one more signal before it answers "more":
// that one is pending when sigsuspend() waits again, so several signals reach
// the handlers in the test's order before the daemon's loop looks at its flags.
int
pause()
{
	sigset_t all, before;
	sigfillset(&all);
	sigprocmask(SIG_SETMASK, &all, &before);
	int fd = control_open();
	if (fd >= 0) {
		char msg[64];
		snprintf(msg, sizeof msg, "idle %lu %lld", ++idle_sequence, alarm_deadline);
		control_send(fd, msg);
	}
	do
		sigsuspend(&before);
	while (fd >= 0 && control_more(fd));
	if (fd >= 0)
		(void)close(fd);
	sigprocmask(SIG_SETMASK, &before, nullptr);
	errno = EINTR;
	return -1;
}

} // extern "C"
