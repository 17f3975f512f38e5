// VLANs for driving the client module without the daemon's registry: the
// client tables of each VLAN number, made on first sight, in order of
// discovery, and a tick's statistics read and client files as the
// daemon's update cycle makes them.
#pragma once

#include "client/client.h"

#include <ctime>
#include <unordered_map>
#include <vector>

struct test_vlans {
	std::unordered_map<int, client_usage_set *> by_number;
	std::vector<int> order;

	test_vlans() = default;
	test_vlans(const test_vlans &) = delete;
	test_vlans &operator=(const test_vlans &) = delete;
	~test_vlans();

	// Null when memory ran out.
	client_usage_set *find_or_add(int vlan);
	client_usage_set *find(int vlan) const { return by_number.at(vlan); }

	// Reads the statistics file at path at clock now; false when it cannot
	// be opened.
	bool read_stats(const char *path, time_t now);

	// Every VLAN's client files under root through tmp; false when tmp
	// cannot be made.
	bool write_files(const char *root, const char *tmp);
};
