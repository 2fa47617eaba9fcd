#include "fleet/departures.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "app/table.h"

namespace velmo {
namespace {

constexpr size_t kCommonShare = 10;  // what a tenth has is no cause
constexpr size_t kNamedParts = 3;    // of a list; the rest is counted

constexpr const char* kNames[kProperties] = {"memory module",
                                             "firmware",
                                             "microcode",
                                             "frequency governor",
                                             "largest clock in Hz",
                                             "CPUs",
                                             "limit",
                                             "transparent huge pages",
                                             "NUMA balancing",
                                             "mitigation",
                                             "hypervisor",
                                             "kernel",
                                             "velmo"};

using Parts = std::map<std::string, std::string>;

// Lines "name<tab>text"; equal names are told apart by a number.
Parts parts_of(const std::string& text) {
  Parts parts;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const size_t tab = std::min(line.find('\t'), line.size());
    std::string name = line.substr(0, tab);
    for (int number = 2; parts.contains(name); ++number) {
      name = line.substr(0, tab) + " (" + std::to_string(number) + ')';
    }
    parts[name] = line.substr(std::min(tab + 1, line.size()));
  }
  return parts;
}

// "DIMM_A1, DIMM_A2 and 3 more"
std::string list_text(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < std::min(names.size(), kNamedParts); ++i) {
    text += (i > 0 ? ", " : "") + names[i];
  }
  if (names.size() > kNamedParts) {
    text += " and " + std::to_string(names.size() - kNamedParts) + " more";
  }
  return text;
}

// How the parts of a host differ from the usual ones: what is missing, what is too many, and what
// is another, each with its likes.
void compare_parts(const std::string& kind, const Parts& usual, const Parts& here,
                   std::vector<std::string>& departures) {
  std::vector<std::string> missing;
  std::vector<std::string> added;
  std::map<std::string, std::vector<std::string>> changed;  // by how
  for (const auto& [name, text] : usual) {
    const auto found = here.find(name);
    if (found == here.end()) {
      missing.push_back(name);
    } else if (found->second != text) {
      changed[found->second + " (usual: " + text + ')'].push_back(name);
    }
  }
  for (const auto& [name, text] : here) {
    if (!usual.contains(name)) added.push_back(name);
  }
  if (!missing.empty()) departures.push_back(kind + " missing: " + list_text(missing));
  for (const auto& [how, names] : changed) {
    const bool all = names.size() > 1 && names.size() == usual.size();
    departures.push_back((all ? "all " + kind + "s: " : kind + ' ' + list_text(names) + ": ") +
                         how);
  }
  if (!added.empty()) departures.push_back(kind + " not usual: " + list_text(added));
}

std::string gib(double bytes) {
  constexpr double kGiB = 1U << 30;
  return fixed_text(bytes / kGiB, 1) + " GiB";
}

void compare_sizes(const Host& host, const Group& group, std::vector<std::string>& departures) {
  for (size_t node = 0; node < host.node_bytes.size(); ++node) {
    const double usual = group.node_bytes[node];
    if (difference({host.node_bytes[node]}, {usual}) <= kSameSize) continue;
    departures.push_back("node " + std::to_string(node) + " has " + gib(host.node_bytes[node]) +
                         " (usual: " + gib(usual) + ')');
  }
}

}  // namespace

Norm::Norm(const Fleet& fleet, const Group& group, const std::vector<uint32_t>& slow)
    : fleet_(fleet), group_(group) {
  std::array<std::unordered_map<uint32_t, size_t>, kProperties> all_with;
  const auto count = [&](const std::vector<uint32_t>& hosts) {
    for (const uint32_t number : hosts) {
      const bool sound = !std::binary_search(slow.begin(), slow.end(), number);
      sound_ += sound ? 1 : 0;
      for (size_t i = 0; i < kProperties; ++i) {
        const uint32_t text = fleet.hosts[number].properties[i];
        ++all_with[i][text];
        if (sound) ++sound_with_[i][text];
      }
    }
  };
  count(group.hosts);
  count(group.reference);
  for (size_t i = 0; i < kProperties; ++i) {
    size_t most = 0;
    for (const auto& [text, hosts] : all_with[i]) {
      if (text == 0 || hosts < most || (hosts == most && text > usual_[i])) continue;
      usual_[i] = text;
      most = hosts;
    }
  }
}

std::vector<std::string> Norm::Departures(const Host& host) const {
  std::vector<std::string> departures;
  for (size_t i = 0; i < kProperties; ++i) {
    if (i == kModules + 1) compare_sizes(host, group_, departures);
    const uint32_t here = host.properties[i];
    if (here == 0 || usual_[i] == 0 || here == usual_[i]) continue;
    const auto sound = sound_with_[i].find(here);
    if (sound != sound_with_[i].end() && sound->second * kCommonShare >= sound_) continue;
    const std::string& text = fleet_.texts.text(here);
    const std::string& usual = fleet_.texts.text(usual_[i]);
    if (text.find('\t') != std::string::npos || usual.find('\t') != std::string::npos) {
      compare_parts(kNames[i], parts_of(usual), parts_of(text), departures);
    } else {
      departures.push_back(std::string(kNames[i]) + ' ' + text + " (usual: " + usual + ')');
    }
  }
  return departures;
}

const std::string& Norm::Text(Property property) const {
  return fleet_.texts.text(usual_[property]);
}

}  // namespace velmo
