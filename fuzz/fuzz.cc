// Shared by the fuzz targets.
#include "fuzz/fuzz.h"

#include "daemon/base/fs.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr char separator[] = "====\n";

} // namespace

// A zone with daylight saving, so its changes are in reach.
extern "C" int
LLVMFuzzerInitialize(int *, char ***)
{
	setenv("TZ", "Europe/Berlin", 1);
	tzset();
	return 0;
}

std::vector<std::string>
fuzz_sections(const uint8_t *data, size_t size, size_t count)
{
	std::string input(reinterpret_cast<const char *>(data), size);
	std::vector<std::string> parts;
	size_t at = 0;
	while (parts.size() + 1 < count) {
		size_t next = input.find(separator, at);
		if (next == std::string::npos)
			break;
		parts.push_back(input.substr(at, next - at));
		at = next + strlen(separator);
	}
	parts.push_back(input.substr(at));
	parts.resize(count);
	return parts;
}

void
fuzz_write_file(const std::string &path, const std::string &text)
{
	std::string dir = path.substr(0, path.rfind('/'));
	(void)recursive_mkdir(dir.c_str());
	FILE *f = fopen(path.c_str(), "w");
	if (f == nullptr)
		return;
	fwrite(text.data(), 1, text.size(), f);
	fclose(f);
}
