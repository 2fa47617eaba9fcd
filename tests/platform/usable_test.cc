#include "platform/usable.h"

#include <gtest/gtest.h>

#include "app/text.h"
#include "app/threads.h"
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
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"0-2\n", "Cpus_allowed_list:\t9\nMems_allowed_list:\t0,3\n", "1-2"},
      {"0\n", "Mems_allowed_list:\t0-1\n", ""},
      {"0-2\n", "Mems_allowed:\t1\n", ""},
      {"0-2\n", "Mems_allowed_list:\tx\n", ""},
      {"-\n", "Mems_allowed_list:\t0\n", ""},
  };
  for (const auto& [with_memory, status, forbidden] : rows) {
    const NodeSources from{dir.Write("memory", with_memory), dir.Write("status", status)};
    EXPECT_EQ(vector_to_str_range(forbidden_nodes(from), 0), forbidden);
  }
}

}  // namespace
}  // namespace velmo
