#include "bandwidth/load_worker.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <limits>
#include <thread>
#include <tuple>
#include <vector>

#include "app/clock.h"

namespace velmo {
namespace {

constexpr int64_t kPage = 4096;
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

TEST(LoadPlan, ChoosesTheKernelAndCountsLines) {
  // Read and write share, stream, full; explicit reads a unit; lines a block (1: generic loop).
  const std::array<int, 6> cases[] = {
      {1, 0, 1, 0, 1, 4}, {0, 1, 1, 0, 0, 4}, {3, 1, 1, 0, 3, 4},       {4, 1, 1, 0, 4, 1},
      {0, 2, 1, 1, 0, 1}, {2, 0, 1, 0, 2, 1}, {1, 0, 0, 1, 1, 4},       {1, 1, 0, 1, 0, 4},
      {3, 1, 0, 1, 2, 4}, {4, 1, 0, 1, 3, 1}, {5, 3, 0, 1, 2, 1},       {2, 0, 0, 1, 2, 1},
      {1, 0, 0, 0, 1, 4}, {2, 1, 0, 0, 1, 4}, {3, 2, 0, 0, 1, 1},       {3, 0, 0, 0, 3, 1},
      {1, 1, 1, 1, 1, 4}, {2, 1, 1, 0, 2, 4}, {kMax, kMax, 0, 1, 0, 1}, {kMax, 1, 1, 1, kMax, 1}};
  for (const auto& [read, write, stream, full, reads, lines] : cases) {
    SCOPED_TRACE(std::to_string(read) + ":" + std::to_string(write));
    const LoadPlan plan({read, write, stream}, full != 0, kBlocksPerPass);
    const Store store = stream != 0 ? Store::kStreaming : Store::kCached;
    const KernelShape shape{reads, write > 0 ? store : Store::kNone, full + stream > 0};
    EXPECT_TRUE(plan.shape == shape);
    EXPECT_EQ(plan.kernel, lines == 4 ? FindKernel(shape) : nullptr);
    EXPECT_EQ(plan.kernel != nullptr, lines == 4);
    const int64_t pass = int64_t{64} * 1024 * lines;
    EXPECT_EQ(plan.pass_bytes, pass * read + pass * write);
    EXPECT_EQ(plan.read_step, pass * reads);
    EXPECT_EQ(plan.write_step, pass * write);
  }
}

TEST(LoadPlan, KeepsAPassNearAMillisecond) {
  const std::pair<uint32_t, int32_t> cases[] = {{0, 1024},    {1, 1024},      {1953, 1024},
                                                {2000, 1000}, {3'000'000, 1}, {1U << 31, 1024}};
  for (const auto& [delay, blocks] : cases) EXPECT_EQ(blocks_of_pass(delay), blocks) << delay;
}

// Works in two regions that lie between pages that must not be touched.
void Walk(const Mix& mix, bool full, int half_passes) {
  SCOPED_TRACE(std::to_string(mix.read) + ":" + std::to_string(mix.write));
  const auto delay = static_cast<uint32_t>(half_passes - 3);
  LoadWorker worker({.mix = mix, .full = full, .delay = delay, .passes = 40});
  worker.blocks_per_pass_ = 128;
  const LoadPlan plan(mix, full, worker.blocks_per_pass_);
  const int64_t size = std::max(plan.read_step, plan.write_step) * half_passes / 2;
  const int64_t mapped = 2 * size + 3 * kPage;
  void* base = mmap(nullptr, mapped, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  worker.read_base_ = static_cast<char*>(base) + kPage;
  worker.write_base_ = static_cast<char*>(base) + mapped - kPage - size;
  mprotect(worker.read_base_, size, PROT_READ);
  mprotect(worker.write_base_, size, PROT_READ | PROT_WRITE);
  worker.region_size_ = size;
  worker.stop_ = true;  // says nothing to a fixed number of passes
  const long start = monotonic_ns();
  Gate gate;
  gate.Open();
  worker.Start(gate);
  const auto elapsed = static_cast<double>(monotonic_ns() - start);
  EXPECT_EQ(worker.bytes_, 40U * plan.pass_bytes);
  // MB/s: no memory moves 10 TB/s.
  EXPECT_GE(worker.bandwidth_, static_cast<double>(worker.bytes_) * 1e3 / elapsed);
  EXPECT_LT(worker.bandwidth_, 1e7);
  for (const auto& [region, step] : {std::pair(worker.read_base_, plan.read_step),
                                     std::pair(worker.write_base_, plan.write_step)}) {
    std::vector<unsigned char> touched(size / kPage), expected(size / kPage);
    if (step > 0) std::fill_n(expected.begin(), size / step * step / kPage, 1);
    mincore(region, size, touched.data());
    EXPECT_EQ(touched, expected);
  }
  const auto* words = static_cast<const uint64_t*>(worker.write_base_);
  const int64_t written = plan.write_step > 0 ? size / plan.write_step * plan.write_step / 8 : 0;
  int64_t wrong = 0;
  for (int64_t i = 0; i < written; ++i) {
    wrong += (words[i] != 0) != (plan.shape.whole_line || i % 8 < 2) ? 1 : 0;
  }
  EXPECT_EQ(wrong, 0) << "of the parts of lines";
  munmap(base, mapped);
}

TEST(LoadWorker, CoversItsRegionsAndStaysInside) {
  const Mix mixes[] = {{1, 0, 0}, {1, 1, 0}, {2, 1, 0}, {3, 1, 0}, {5, 3, 0},
                       {2, 2, 0}, {0, 1, 1}, {3, 1, 1}, {4, 1, 1}, {0, 2, 1}};
  for (const Mix& mix : mixes) {
    for (const int half_passes : {2, 3, 7}) {
      for (const bool full : {false, true}) Walk(mix, full, half_passes);
    }
  }
}

// Of a delay of some 10 ms, a pass would have a thousand.
TEST(LoadWorker, HeedsAStopBehindAShortPass) {
  for (const auto& [mix, every_unit, short_pass] : {std::tuple(Mix{1, 0, 0}, false, true),
                                                    {Mix{5, 3, 0}, true, true},
                                                    {Mix{5, 3, 0}, false, false}}) {
    const LoadPlan whole(mix, false, kBlocksPerPass);
    std::vector<char> regions(2 * std::max(whole.read_step, whole.write_step) + 64);
    LoadWorker worker({.mix = mix, .delay = 20'000'000, .delay_every_unit = every_unit});
    worker.SetMem(regions.data() + 64 - reinterpret_cast<uintptr_t>(regions.data()) % 64,
                  (static_cast<long>(regions.size()) - 64) / 2, -1);
    Gate gate;
    gate.Open();
    std::thread thread([&] { worker.Start(gate); });
    while (worker.bytes_ == 0) std::this_thread::yield();
    worker.stop_ = true;
    thread.join();
    EXPECT_EQ(static_cast<int64_t>(worker.bytes_) < whole.pass_bytes, short_pass) << mix.read;
  }
}

TEST(LoadWorker, MarksBothRegionsAtEveryStride) {
  char marked[2 * kPage];
  const std::array<long, 3> cases[] = {{kPage, 64, 0x1FE}, {kPage, 256, 0}, {960, 192, 7},
                                       {kPage, 64, -1},    {2048, 8192, 3}, {0, 64, 3}};
  for (const auto& [size, stride, fill] : cases) {
    std::string expected(2 * kPage, 'Z');
    std::copy(expected.begin(), expected.end(), marked);
    for (long i = 0; fill != -1 && i < size / stride; ++i) {
      expected[i * stride] = expected[size + i * stride] = static_cast<char>(fill);
    }
    LoadWorker worker({.stride = static_cast<int>(stride)});
    worker.SetMem(marked, size, fill);
    EXPECT_EQ(std::string(marked, 2 * kPage), expected) << size << ' ' << stride;
  }
}

}  // namespace
}  // namespace velmo
