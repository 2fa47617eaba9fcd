// Groups of hosts that should be equal.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fleet/host.h"

namespace velmo {

// Fewer hosts are not compared with each other: half of their spread is chance.
inline constexpr size_t kLeastHosts = 8;

// Sizes of equal nodes differ by what their kernels keep for themselves.
inline constexpr double kSameSize = 0.02;

struct Group {
  std::vector<uint32_t> hosts;      // numbers in Fleet::hosts, rising
  std::vector<uint32_t> reference;  // of a history, where the hosts alone are too few
  std::vector<double> node_bytes;   // what most of them have
};

// The larger share by which two lists differ; 1 where they are of different lengths.
double difference(const std::vector<double>& a, const std::vector<double>& b);

// Groups of the hosts that are judged, the largest first. Equal are those of one processor model,
// number of sockets and nodes, measured alike. Of fleet.hosts, those from number `current` on are a
// history.
//
// Node sizes and the number of memory modules part a group only where each kind has at least
// kLeastHosts hosts and a tenth of them: a host that misses a module stays among its likes, where
// it can be seen to be slow.
std::vector<Group> group_hosts(const Fleet& fleet, size_t current);

}  // namespace velmo
