#include "latency/chase.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "mem/chain.h"
#include "support/disassemble.h"

namespace velmo {
namespace {

alignas(64) char elements[4096];

TEST(Chase, TakesAllStepsAndCountsASampleForEach) {
  lay_chain(elements, sizeof elements, 64, kSequential);
  std::vector<int64_t> hist(kMaxCycles + 1);
  for (const uint64_t steps : {0, 1, 100}) {
    const void* end = elements + steps % 64 * 64;
    EXPECT_EQ(Chase(elements, steps), end);
    EXPECT_EQ(ChaseDelayed(elements, steps, 100), end);
    EXPECT_EQ(Sample(elements, steps, hist.data()), end);
    EXPECT_EQ(SampleDelayed(elements, steps, 2'000'000, hist.data()), end);
  }
  EXPECT_EQ(std::accumulate(hist.begin(), hist.end(), int64_t{0}), 2 * 101);
  EXPECT_GE(hist.back(), 101) << "2 ms are more cycles than the histogram tells apart";
}

TEST(Chase, LoopsHoldALoadAndFencesAloneAroundTheirTime) {
  if (velmo_test::kAddsInstructions) GTEST_SKIP() << "of Release alone";
  const std::string load = R"(\w+:mov (?:0x0)?\((%\w+)\),\1;)";
  const std::string wait =
      R"((?:\w+:(?:mov|call|xchg|nop\w*|sub|cmp|jb) [^(;]*(?:\(%rax.*?\))?;)+)";
  const std::string next = R"(\w+:sub \$0x1,%\w+;\w+:jne \w+;)";
  const std::string value = R"(\w+:shl \$0x20,%rdx;\w+:or %rdx,%rax;\w+:lfence ;)";
  const std::string begin = R"(\w+:lfence ;\w+:rdtsc ;)" + value;
  const std::string end =
      R"(\w+:rdtscp ;)" + value +
      R"((?:\w+:(?:mov|sub|cmp|cmova) [^(;]*;){4}\w+:addq \$0x1,\(%\w+,%rax,8\);)"
      R"(\w+:lfence ;\w+:mfence ;)" +
      next;
  const std::pair<uint64_t, std::string> loops[] = {
      {velmo_test::AddressOf(Chase), load + next},
      {velmo_test::AddressOf(ChaseDelayed), load + wait + next},
      {velmo_test::AddressOf(Sample), begin + load + R"(\w+:mov %rax,%\w+;)" + end},
      {velmo_test::AddressOf(SampleDelayed), begin + load + wait + end},
  };
  for (const auto& [address, loop] : loops) {
    const std::string code = velmo_test::Disassemble(address);
    EXPECT_TRUE(std::regex_search(code, std::regex(loop))) << code << "\nhas not\n" << loop;
  }
}

}  // namespace
}  // namespace velmo
