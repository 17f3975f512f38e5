// The daemon's one logging funnel: syslog at LOG_DAEMON | LOG_NOTICE.
#pragma once

// Opens and closes the log around every message, so a restarted syslogd is
// picked up without notice. A null format logs nothing; errno is kept.
void log_notice(const char *format, ...) __attribute__((format(printf, 1, 2)));
