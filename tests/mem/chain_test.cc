#include "mem/chain.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <numeric>
#include <set>
#include <vector>

#include "support/subprocess.h"

namespace velmo {
namespace {

using Words = std::vector<uint64_t>;

constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
constexpr long kBlock = 256 * 1024;

// Builds a chain in a buffer of kUntouched with room for three words beyond `size`.
Words Build(int (*make)(void*&, long, int), long size, int stride) {
  Words words(size / 8 + 3, kUntouched);
  void* buf = words.data();
  EXPECT_EQ(make(buf, size, stride), 1);
  EXPECT_EQ(buf, words.data());
  return words;
}

struct ChainCase {
  const char* name;
  long size;
  int stride;
  uint64_t elements;
  uint64_t in_full_blocks;  // elements of the random chain's full blocks
};

constexpr ChainCase kChains[] = {
    {"FourBlocks", 4 * kBlock, 64, 16384, 16384},
    {"BlockAndRemainder", kBlock + 640, 64, 4106, 4096},
    {"BlocksAndRemainderOfOne", 2 * kBlock + 8192, 8192, 65, 64},
    {"StrideThatLeavesPartOfABlock", 3 * kBlock, 100'000, 7, 6},
    {"BlocksOfOneElement", 3 * kBlock, static_cast<int>(kBlock), 3, 3},
    {"LeastStride", kBlock + 100, 24, 10926, 10922},
    {"SmallerThanABlock", 64 * 1000 + 63, 64, 1000, 0},
    {"Two", 128, 64, 2, 0},
    {"One", 127, 64, 1, 0},
};

class Chain : public testing::TestWithParam<ChainCase> {
 protected:
  // The words of `words` that a chain in the order of `walk` has in it, and no others.
  static void ExpectChain(const Words& words, const Words& walk, bool random) {
    const ChainCase& c = GetParam();
    Words expected(words.size(), kUntouched);
    for (uint64_t i = 0; i < c.elements; ++i) {
      const uint64_t next = walk[(i + 1) % c.elements];
      uint64_t* element = &expected[walk[i] * c.stride / 8];
      element[0] = reinterpret_cast<uint64_t>(words.data()) + next * c.stride;
      if (!random || i >= c.in_full_blocks) continue;
      element[1] = walk[i] == 0 ? 0xDEADBEEF : walk[i];
      if (i != c.in_full_blocks - 1) element[2] = next;
    }
    for (size_t w = 0; w < words.size(); ++w) ASSERT_EQ(words[w], expected[w]) << "word " << w;
  }
};

TEST_P(Chain, SequentialVisitsByAddressAndWritesLinksAlone) {
  Words walk(GetParam().elements);
  std::iota(walk.begin(), walk.end(), 0);
  ExpectChain(Build(make_seq_chain, GetParam().size, GetParam().stride), walk, false);
}

TEST_P(Chain, RandomVisitsEveryElementOnceBlockByBlock) {
  const ChainCase& c = GetParam();
  const Words words = Build(make_rnd_chain, c.size, c.stride);
  const uint64_t per = kBlock / c.stride;
  Words walk;
  std::set<uint64_t> visited;
  uint64_t byte = 0;
  for (uint64_t i = 0; i < c.elements; ++i) {
    const uint64_t k = byte / c.stride;
    ASSERT_TRUE(byte % c.stride == 0 && k < c.elements && visited.insert(k).second) << byte;
    ASSERT_EQ(k / per, i / per) << "a block is left before it is done";
    if (i % per == 0) ASSERT_EQ(k, i) << "a block begins at its first element";
    walk.push_back(k);
    byte = words[byte / 8] - reinterpret_cast<uint64_t>(words.data());
  }
  ExpectChain(words, walk, true);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Chain, testing::ValuesIn(kChains),
                         [](const auto& chain) { return std::string(chain.param.name); });

TEST(ChainOfNothing, OnlyTheSequentialOneLinksElementZero) {
  EXPECT_EQ(Build(make_rnd_chain, 63, 64), Words(10, kUntouched));
  EXPECT_NE(Build(make_seq_chain, 63, 64).front(), kUntouched);
}

TEST(RandomChain, DiffersFromBlockToBlockAndFromBuildToBuild) {
  const auto next_indices = [] {
    const Words words = Build(make_rnd_chain, 2 * kBlock, 64);
    Words next;
    for (uint64_t k = 0; k < 8191; ++k) next.push_back(words[k * 8 + 2] % 4096);
    return next;
  };
  const Words first = next_indices();
  EXPECT_NE(next_indices(), first);
  EXPECT_NE(Words(first.begin(), first.begin() + 4000),
            Words(first.begin() + 4096, first.begin() + 8096));
}

TEST(RandomChain, NeedsNoMemoryInProportionToTheBuffer) {
  const auto outcome = velmo_test::RunForked([] {
    Words words((128 << 20) / 8, kUntouched);  // 5.6 million elements: 45 MB of indices
    void* buf = words.data();
    rusage before;
    rusage after;
    getrusage(RUSAGE_SELF, &before);
    make_rnd_chain(buf, 128 << 20, 24);
    getrusage(RUSAGE_SELF, &after);
    if (after.ru_maxrss - before.ru_maxrss > 16 * 1024) _exit(1);  // KiB
  });
  EXPECT_EQ(outcome.status, 0);
}

}  // namespace
}  // namespace velmo
