#include "platform/usable.h"

#include <gtest/gtest.h>

#include "app/text.h"
#include "app/threads.h"
#include "platform/cgroup.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

TEST(Usable, CpusReachBeyondAPinThatStays) {
  const velmo_test::Outcome outcome = velmo_test::RunForked([] {
    const std::vector<int> all = usable_cpus();
    set_cpu_affinity(all.back());
    std::cout << (usable_cpus() == all);
    check_still_pinned(all.back());
    set_cpu_affinity(5000);
  });
  EXPECT_EQ(outcome,
            (velmo_test::Outcome{1, "1", velmo_test::Error("Failed to pin process to CPU 5000")}));
}

TEST(Usable, NodesAreForbiddenThatHaveMemory) {
  const velmo_test::TempDir dir;
  const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
      {"0-2\n", "Cpus_allowed_list:\t9\nMems_allowed_list:\t0,3\n", "0", "1-2"},
      {"0\n", "Mems_allowed_list:\t0-1\n", "0", ""},
      {"0-2\n", "Mems_allowed:\t1\n", "", ""},
      {"0-2\n", "Mems_allowed_list:\tx\n", "", ""},
      {"-\n", "Mems_allowed_list:\t0\n", "", ""},
  };
  for (const auto& [with_memory, status, allowed, forbidden] : rows) {
    const NodeSources from{dir.Write("memory", with_memory), dir.Write("status", status)};
    const MemoryNodes nodes = memory_nodes(from);
    EXPECT_EQ(vector_to_str_range(nodes.allowed, 0), allowed);
    EXPECT_EQ(vector_to_str_range(nodes.forbidden, 0), forbidden);
  }
}

// A group of either version within one; the page cache gives way, shared memory does not.
TEST(Usable, MemoryIsWhatTheStrictestGroupLeaves) {
  const velmo_test::TempDir dir;
  const auto left = [&](const std::string& type, const std::string& inner) {
    dir.Write("proc/self/mountinfo", "1 2 0:3 / /g rw - " + type + " g rw,memory\n");
    dir.Write("proc/self/cgroup", "3:memory:" + inner + "\n0::" + inner + "\n");
    return memory_left(dir.path()).value_or(-1);
  };
  dir.Write("g/memory.max", "1000\n");
  dir.Write("g/memory.current", "500\n");
  dir.Write("g/memory.stat", "inactive_file 7\nfile 300\nfile_mapped 8\nshmem 100\n");
  dir.Write("g/inner/memory.max", "max\n");
  EXPECT_EQ(left("cgroup2", "/inner"), 700);
  dir.Write("g/old/memory.limit_in_bytes", "600\n");
  dir.Write("g/old/memory.usage_in_bytes", "400\n");
  dir.Write("g/old/memory.stat", "cache 1\ntotal_cache 200\ntotal_shmem 50\n");
  EXPECT_EQ(left("cgroup", "/old"), 350);
  dir.Write("g/memory.max", "max\n");
  EXPECT_EQ(left("cgroup2", "/inner"), -1);
}

}  // namespace
}  // namespace velmo
