#include "mem/chain.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <set>
#include <vector>

namespace velmo {
namespace {

using Words = std::vector<uint64_t>;

constexpr uint64_t kUntouched = 0x5A5A5A5A5A5A5A5A;
constexpr long kBlock = 256 * 1024;

// Checks a chain laid into `size` bytes, by so many threads where not by this one: every element is
// visited once, nothing else is written.
void CheckChain(long size, int stride, bool random, size_t threads = 0) {
  SCOPED_TRACE(testing::Message() << size << ' ' << stride << ' ' << random);
  Words words(size / 8 + 3, kUntouched);
  void* buf = words.data();
  if (threads == 0) {
    (random ? make_rnd_chain : make_seq_chain)(buf, size, stride);
  } else {
    lay_rnd_chain_on(std::vector(threads, sched_getcpu()), buf, size, stride);
  }
  const auto start = reinterpret_cast<uint64_t>(buf);

  const uint64_t elements = size / stride;
  const uint64_t per = random ? kBlock / stride : 1;
  Words walk;
  uint64_t byte = 0;
  for (uint64_t i = 0; i < elements; ++i) {
    const uint64_t at = byte / stride;
    ASSERT_TRUE(byte % stride == 0 && at < elements) << byte;
    ASSERT_EQ(at / per, i / per) << "a block is left before it is done";
    ASSERT_TRUE(i % per != 0 || at == i) << "a block begins at its first element";
    walk.push_back(at);
    byte = words[byte / 8] - start;
  }
  ASSERT_EQ(std::set(walk.begin(), walk.end()).size(), elements);

  Words expected(words.size(), kUntouched);
  if (elements == 0 && !random) expected[0] = start;
  for (uint64_t i = 0; i < elements; ++i) {
    const uint64_t next = walk[(i + 1) % elements];
    uint64_t* element = &expected[walk[i] * stride / 8];
    element[0] = start + next * stride;
    if (!random || i >= elements / per * per) continue;
    element[1] = walk[i] == 0 ? 0xDEADBEEF : walk[i];
    if (i != elements / per * per - 1) element[2] = next;
  }
  for (size_t w = 0; w < words.size(); ++w) ASSERT_EQ(words[w], expected[w]) << "word " << w;
  if (!random || elements < 1000) return;
  make_rnd_chain(buf, size, stride);
  EXPECT_NE(words, expected) << "the order differs from build to build";
}

TEST(Chain, VisitsEveryElementOnceAndWritesNothingElse) {
  const std::pair<long, int> cases[] = {
      {kBlock + 640, 64}, {3 * kBlock, kBlock},  {kBlock + 100, 24}, {64'063, 64}, {127, 64},
      {63, 64},           {3 * kBlock, 100'000},  // a block of two elements and an unused part
  };
  for (const auto& [size, stride] : cases) {
    for (const bool random : {false, true}) CheckChain(size, stride, random);
  }
  for (const size_t threads : {1, 2, 3, 5}) CheckChain(3 * kBlock + 640, 64, true, threads);
}

}  // namespace
}  // namespace velmo
