#include "fleet/grouping.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

namespace velmo {
namespace {

using Hosts = std::vector<uint32_t>;

// Numbers of a host that it shares with its likes; none: not known.
using NumbersOf = std::function<std::vector<double>(uint32_t host)>;

// Buffers of surveys with one --size differ by what was free on the node.
constexpr double kSameBuffer = 0.25;

// A kind of hosts, rather than a fault that several have, is a tenth of its group at least.
constexpr size_t kKindShare = 10;

struct Cluster {
  std::vector<double> centre;
  Hosts hosts;
};

// Hosts of which each is within `tolerance` of the centre of its cluster, the largest cluster
// first, behind which the hosts of unknown numbers stand.
std::vector<Cluster> clusters_of(const Hosts& hosts, const NumbersOf& numbers_of,
                                 double tolerance) {
  std::vector<std::pair<std::vector<double>, uint32_t>> rest;
  Hosts unknown;
  for (const uint32_t host : hosts) {
    std::vector<double> numbers = numbers_of(host);
    if (numbers.empty()) {
      unknown.push_back(host);
    } else {
      rest.emplace_back(std::move(numbers), host);
    }
  }
  std::sort(rest.begin(), rest.end());
  std::vector<Cluster> clusters;
  while (!rest.empty()) {
    // Of hosts of one kind the middle one is amid it, and so is that of most hosts of several.
    Cluster cluster{rest[rest.size() / 2].first, {}};
    std::erase_if(rest, [&](const auto& entry) {
      const bool near = difference(entry.first, cluster.centre) <= tolerance;
      if (near) cluster.hosts.push_back(entry.second);
      return near;
    });
    clusters.push_back(std::move(cluster));
  }
  std::stable_sort(clusters.begin(), clusters.end(), [](const Cluster& a, const Cluster& b) {
    return a.hosts.size() > b.hosts.size();
  });
  if (clusters.empty()) clusters.emplace_back();
  clusters.front().hosts.insert(clusters.front().hosts.end(), unknown.begin(), unknown.end());
  return clusters;
}

std::vector<Hosts> sorted(std::vector<Cluster> clusters) {
  std::vector<Hosts> parts;
  for (Cluster& cluster : clusters) {
    std::sort(cluster.hosts.begin(), cluster.hosts.end());
    parts.push_back(std::move(cluster.hosts));
  }
  return parts;
}

// What differs is never compared.
std::vector<Hosts> part(const Hosts& hosts, const NumbersOf& numbers_of, double tolerance) {
  return sorted(clusters_of(hosts, numbers_of, tolerance));
}

// Kinds alone are parted; what is too rare for a kind joins the nearest.
std::vector<Hosts> part_kinds(const Hosts& hosts, const NumbersOf& numbers_of, double tolerance) {
  std::vector<Cluster> clusters = clusters_of(hosts, numbers_of, tolerance);
  const auto is_kind = [&hosts](const Cluster& cluster) {
    return cluster.hosts.size() >= kLeastHosts && cluster.hosts.size() * kKindShare >= hosts.size();
  };
  auto rare = std::find_if_not(clusters.begin(), clusters.end(), is_kind);
  if (rare == clusters.begin()) ++rare;
  for (auto cluster = rare; cluster != clusters.end(); ++cluster) {
    const auto nearest = std::min_element(clusters.begin(), rare, [&](auto& a, auto& b) {
      return difference(a.centre, cluster->centre) < difference(b.centre, cluster->centre);
    });
    nearest->hosts.insert(nearest->hosts.end(), cluster->hosts.begin(), cluster->hosts.end());
  }
  clusters.erase(rare, clusters.end());
  return sorted(std::move(clusters));
}

// The median of each node's size.
std::vector<double> usual_sizes(const Fleet& fleet, const Hosts& hosts) {
  std::vector<double> usual(fleet.hosts[hosts.front()].node_bytes.size());
  for (size_t node = 0; node < usual.size(); ++node) {
    std::vector<double> sizes;
    for (const uint32_t host : hosts) sizes.push_back(fleet.hosts[host].node_bytes[node]);
    const auto middle = sizes.begin() + static_cast<ptrdiff_t>(sizes.size() / 2);
    std::nth_element(sizes.begin(), middle, sizes.end());
    usual[node] = *middle;
  }
  return usual;
}

Group group_of(const Fleet& fleet, const Hosts& members, size_t current) {
  const auto first_past = std::lower_bound(members.begin(), members.end(), current);
  Group group{{members.begin(), first_past}, {}, usual_sizes(fleet, members)};
  if (group.hosts.size() < kLeastHosts) group.reference.assign(first_past, members.end());
  return group;
}

}  // namespace

double difference(const std::vector<double>& a, const std::vector<double>& b) {
  if (a.size() != b.size()) return 1;
  double largest = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const double larger = std::max(a[i], b[i]);
    if (larger > 0) largest = std::max(largest, std::abs(a[i] - b[i]) / larger);
  }
  return largest;
}

std::vector<Group> group_hosts(const Fleet& fleet, size_t current) {
  const NumbersOf buffer = [&fleet](uint32_t host) {
    return std::vector<double>{fleet.hosts[host].buffer_bytes};
  };
  const NumbersOf sizes = [&fleet](uint32_t host) { return fleet.hosts[host].node_bytes; };
  const NumbersOf modules = [&fleet](uint32_t host) {
    const std::string& text = fleet.texts.text(fleet.hosts[host].properties[kModules]);
    if (text.empty()) return std::vector<double>();
    return std::vector<double>{static_cast<double>(std::count(text.begin(), text.end(), '\n'))};
  };
  std::map<uint32_t, Hosts> equals;
  for (uint32_t host = 0; host < fleet.hosts.size(); ++host) {
    if (fleet.hosts[host].judged) equals[fleet.hosts[host].equals].push_back(host);
  }
  std::vector<Group> groups;
  for (const auto& [text, hosts] : equals) {
    for (const Hosts& of_buffer : part(hosts, buffer, kSameBuffer)) {
      for (const Hosts& of_sizes : part_kinds(of_buffer, sizes, kSameSize)) {
        for (const Hosts& members : part_kinds(of_sizes, modules, 0)) {
          Group group = group_of(fleet, members, current);
          if (!group.hosts.empty()) groups.push_back(std::move(group));
        }
      }
    }
  }
  std::sort(groups.begin(), groups.end(), [](const Group& a, const Group& b) {
    return a.hosts.size() != b.hosts.size() ? a.hosts.size() > b.hosts.size()
                                            : a.hosts.front() < b.hosts.front();
  });
  return groups;
}

}  // namespace velmo
