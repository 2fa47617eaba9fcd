#include "platform/spoilers.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/subprocess.h"

namespace velmo {
namespace {

using Spoilers = std::vector<std::string>;

// A machine with nothing to complain about.
constexpr const char* kQuiet[][2] = {
    {"msr1", ""},
    {"msr2", ""},
    {"balancing", "0\n"},
    {"governor1", "performance\n"},
    {"governor2", "performance\n"},
    {"clock", "tsc\n"},
    {"pages", "always [madvise] never\n"},
    {"node4", "Node 4 MemTotal:  2000 kB\nNode 4 MemFree:  1000 kB\n"},
    {"isolated", "3-4\n"},
    {"stat", "cpu  9\ncpu1 100 0 0 100 0 0 0 0 0 0\ncpu2 0 0 0 0 0 0 0 0 0 0\nintr 1\n"},
    {"stat_later", "cpu  9\ncpu1 110 0 0 180 10 0 0 0 9 9\ncpu2 0 0 0 9 0 0 0 0 0 0\n"},
};

// What is found on the quiet machine whose file `name` holds `text` instead; null: does not exist.
Spoilers Find(const std::string& name, const char* text) {
  const velmo_test::TempDir dir;
  for (const auto& [file, content] : kQuiet) dir.Write(file, content);
  const std::string at = dir.path() + "/";
  if (text != nullptr) {
    dir.Write(name, text);
  } else {
    std::filesystem::remove(at + name);
  }
  SpoilerSources from;
  from.msr = at + "msr%d";
  from.numa_balancing = at + (name == "bound" ? name : "balancing");
  from.governor = at + "governor%d";
  from.clock_source = at + "clock";
  from.huge_pages = at + "pages";
  from.node_memory = at + "node%d";
  from.isolated = at + "isolated";
  from.cpu_time = at + "stat";
  from.wait = [&at] { std::rename((at + "stat_later").c_str(), (at + "stat").c_str()); };
  Spoilers found = find_spoilers({{1, 2}, true, true, {4}, name != "bound"}, from);
  for (std::string& line : found) {  // the paths differ from run to run
    for (size_t i; (i = line.find(at)) != std::string::npos;) line.erase(i, at.size());
  }
  return found;
}

TEST(Spoilers, AreFoundOneByOne) {
  // Each file as it spoils, where that is not by its absence, and the beginning of what is said.
  const char* in_use = "Memory node 4 is in use, 49 % ";
  const std::tuple<const char*, const char*, Spoilers> rows[] = {
      {"none", "", {}},
      {"msr2", nullptr, {"No msr2: "}},
      {"balancing", "2\n", {"Automatic NUMA balancing is on (2): "}},
      {"bound", "2\n", {}},
      {"governor1", "powersave\n", {"Frequency governor of CPU 1 is powersave, "}},
      {"clock", "hpet\n", {"Clock source is hpet, not tsc: "}},
      {"pages", "[always] madvise never\n", {"Transparent huge pages are set to always: "}},
      {"node4", "Node 4 MemTotal: 2000 kB\nNode 4 MemFree: 999 kB\n", {in_use}},
      {"node4", "Node 4 MemFree:  999 kB\n", {}},
      {"node4", "MemTotal: 2000 kB\nMemFree: 9 kB\nFilePages: 1000 kB\nShmem: 9 kB\n", {}},
      {"node4", "MemTotal: 2000 kB\nMemFree: 9 kB\nFilePages: 1000 kB\nShmem: 10 kB\n", {in_use}},
      {"isolated", "2-3\n", {"Isolated: CPU 2, "}},
      {"isolated", "0-3\n", {"Isolated: CPUs 1-2, "}},
      {"isolated", "\n", {}},
      {"isolated", "1;2\n", {}},
      {"stat", "cpux 1\ncpu99999999999999999999 1\ncpu 2\n", {}},
      {"stat_later",
       "cpu1 110 0 0 179 0 0 0 0\ncpu2 1 0 0 9 0\n",
       {"Busy: CPU 1, by up to 11 %: "}},
      {"stat_later",
       "cpu1 100 0 0 100 0 10 10 30\ncpu2 0 1 1 7 0\n",
       {"Busy: CPUs 1-2, by up to 100 %: "}},
  };
  for (const auto& [file, text, expected] : rows) {
    Spoilers found = Find(file, text);
    ASSERT_EQ(found.size(), expected.size()) << file << ' ' << testing::PrintToString(found);
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_EQ(found[i].substr(0, expected[i].size()), expected[i]);
    }
  }
  for (size_t i = 2; i < std::size(kQuiet); ++i) {  // but for the registers
    EXPECT_EQ(Find(kQuiet[i][0], nullptr), Spoilers()) << kQuiet[i][0];
  }
}

}  // namespace
}  // namespace velmo
