// The daemon's one logging funnel.
#include "daemon/base/log.h"

#include <cerrno>
#include <cstdarg>
#include <syslog.h>

void
log_notice(const char *format, ...)
{
	if (format == nullptr)
		return;
	int saved_errno = errno;
	va_list args;
	va_start(args, format);
	openlog("tally", 0, LOG_DAEMON);
	vsyslog(LOG_DAEMON | LOG_NOTICE, format, args);
	closelog();
	va_end(args);
	errno = saved_errno;
}
