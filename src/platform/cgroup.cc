#include "platform/cgroup.h"

#include <algorithm>
#include <sstream>

#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// Whether `name` is one of the names in `list`, which commas separate.
bool names(const std::string& list, const std::string& name) {
  return (',' + list + ',').find(',' + name + ',') != std::string::npos;
}

// Where a hierarchy of groups is mounted, and which of its groups is seen there as the top.
struct Mount {
  std::string top;
  std::string folder;
  bool version_2 = false;
};

// The hierarchy that has `controller`: the one of version 1 that names it, else that of version 2.
// A line of mountinfo (proc(5)) reads "31 23 0:28 TOP FOLDER options [more]... - TYPE source
// OPTIONS".
Mount find_mount(const std::string& controller, const std::string& root) {
  std::string text;
  Mount found;
  if (!read_text(root + "/proc/self/mountinfo", text)) return found;
  std::istringstream lines(text);
  for (std::string line; read_line(lines, line);) {
    const size_t dash = line.find(" - ");
    if (dash == std::string::npos) continue;
    std::istringstream before(line);
    std::istringstream behind(line.substr(dash + 3));
    std::string skipped;
    std::string type;
    std::string options;
    Mount mount;
    before >> skipped >> skipped >> skipped >> mount.top >> mount.folder;
    behind >> type >> skipped >> options;
    mount.version_2 = type == "cgroup2";
    if (type == "cgroup" && names(options, controller)) return mount;
    if (mount.version_2) found = mount;
  }
  return found;
}

// The group of this process there: lines "4:memory:/group", and "0::/group" for version 2.
std::string find_group(const std::string& controller, bool version_2, const std::string& root) {
  std::string text;
  if (!read_text(root + "/proc/self/cgroup", text)) return "/";
  std::istringstream lines(text);
  for (std::string line; read_line(lines, line);) {
    const size_t first = line.find(':');
    const size_t second = line.find(':', first + 1);
    if (first == std::string::npos || second == std::string::npos) continue;
    const std::string controllers = line.substr(first + 1, second - first - 1);
    if (version_2 ? controllers.empty() : names(controllers, controller)) {
      return line.substr(second + 1);
    }
  }
  return "/";
}

// Bytes that the group has taken, without the page cache that gives way.
int64_t memory_used(const std::string& folder) {
  const std::string version_2 = first_line(folder + "/memory.current");
  const bool first = version_2.empty();
  const std::string used = first ? first_line(folder + "/memory.usage_in_bytes") : version_2;
  std::string stat;
  read_text(folder + "/memory.stat", stat);
  const int64_t files = number_after(stat, first ? "total_cache" : "file").value_or(0);
  const int64_t shared = number_after(stat, first ? "total_shmem" : "shmem").value_or(0);
  return leading_number(used).value_or(0) - (files - shared);
}

}  // namespace

std::vector<std::string> cgroup_folders(const std::string& controller, const std::string& root) {
  const Mount mount = find_mount(controller, root);
  if (mount.folder.empty()) return {};
  std::string group = find_group(controller, mount.version_2, root);
  // In a container the path may be that of the host, of which only a part is mounted.
  if (mount.top != "/" && group.starts_with(mount.top)) group.erase(0, mount.top.size());
  // A group above the mount is not seen.
  if (!group.starts_with('/') || group.starts_with("/..")) group.clear();
  while (group.ends_with('/')) group.pop_back();

  const std::string top = root + mount.folder;
  std::vector<std::string> folders;
  for (; !group.empty(); group.erase(group.rfind('/'))) folders.push_back(top + group);
  folders.push_back(top);
  return folders;
}

int64_t memory_limit(const std::string& folder) {
  constexpr long kNone = 1L << 62;  // version 1 writes the largest multiple of a page instead
  const std::string version_2 = first_line(folder + "/memory.max");
  const std::string text =
      version_2.empty() ? first_line(folder + "/memory.limit_in_bytes") : version_2;
  const long bytes = leading_number(text).value_or(-1);
  return bytes >= kNone ? -1 : bytes;
}

// "QUOTA PERIOD" in version 2, two files in version 1.
double cpu_quota(const std::string& folder) {
  const std::string both = first_line(folder + "/cpu.max");
  const size_t blank = std::min(both.find(' '), both.size());
  const std::string quota = both.empty() ? first_line(folder + "/cpu.cfs_quota_us") : both;
  const std::string period = both.empty() ? first_line(folder + "/cpu.cfs_period_us")
                                          : both.substr(std::min(blank + 1, both.size()));
  const double us = static_cast<double>(leading_number(quota).value_or(-1));
  const auto of = static_cast<double>(leading_number(period).value_or(0));
  return us < 0 || of <= 0 ? -1 : us / of;
}

std::optional<int64_t> memory_left(const std::string& root) {
  std::optional<int64_t> least;
  for (const std::string& folder : cgroup_folders("memory", root)) {
    const int64_t limit = memory_limit(folder);
    if (limit < 0) continue;
    const int64_t left = std::max<int64_t>(limit - memory_used(folder), 0);
    least = std::min(least.value_or(left), left);
  }
  return least;
}

}  // namespace velmo
