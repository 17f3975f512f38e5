// What a writer puts in an out_file, as a string, for tests and fuzzers.
#pragma once

#include "daemon/base/text.h"

#include <string>
#include <sys/mman.h>
#include <unistd.h>

// One file in memory serves every call.
template <typename Print>
std::string
printed(Print print)
{
	static int fd = memfd_create("printed", 0);
	if (fd < 0 || ftruncate(fd, 0) != 0 || lseek(fd, 0, SEEK_SET) != 0)
		return "(no file)";
	out_file o;
	out_start(&o, dup(fd));
	print(&o);
	std::string text = out_finish(&o) ? "" : "(write failed)";
	char buffer[4096];
	for (off_t at = 0;;) {
		ssize_t n = pread(fd, buffer, sizeof buffer, at);
		if (n <= 0)
			break;
		text.append(buffer, static_cast<size_t>(n));
		at += n;
	}
	return text;
}
