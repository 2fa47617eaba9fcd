#include "platform/prefetch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>

#include "app/signal_handler.h"
#include "support/fake_machine.h"

namespace velmo_test {

TEST(Prefetch, SwitchesTheRegisterOfTheModelOffAndBack) {
  constexpr uint64_t kOld = 0xFEDC'0000'0000'0011;
  const struct {
    int32_t vendor, model;
    uint64_t address, off;
  } rows[] = {
      {1, 0x0F, 0x1A0, kOld | 0xA000080200},
      {1, 0x16, 0x1A0, kOld | 0xA000080200},
      {1, 0x17, 0x1A0, kOld | 0xA000080200},
      {1, 0x1D, 0x1A0, kOld | 0xA000080200},
      {1, 0x8F, 0x1A4, 0x2F},
      {1, 0xAD, 0x1A4, 0x1EF},
      {1, 0xAE, 0x1A4, 0x1EF},
      {2, 0x17, 0xC0000108, 0x2F},
      {2, 0xAD, 0xC0000108, 0x1EF},
  };
  for (const auto& row : rows) {
    const FakeMsr msr;
    msr.Set(row.address, kOld);
    const Outcome outcome = RunForked([&] {
      velmo::find_offset({.vendor = row.vendor, .model = row.model});
      std::cout << velmo::disable_prefetch(3) << (msr.Get(row.address) == row.off)
                << velmo::rollback_msr() << (msr.Get(row.address) == kOld);
      velmo::MSR_PATH = "/nonexistent/%d";
      std::cout << velmo::rollback_msr();  // nothing to restore, no file touched
    });
    EXPECT_EQ(outcome, (Outcome{0, "11111", ""})) << row.vendor << '/' << row.model;
  }
  const FakeMsr shared;
  shared.Set(0x1A4, kOld);
  EXPECT_EQ(
      RunForked([&] {
        velmo::find_offset({.vendor = velmo::CpuInfo::kIntel, .model = 0x8F});
        const int another = open(shared.file.c_str(), O_RDWR);
        flock(another, LOCK_EX);
        std::cout << velmo::disable_prefetch(3);
        close(another);
        std::cout << velmo::disable_prefetch(3);
        const int late = open(shared.file.c_str(), O_RDWR);
        std::cout << (flock(late, LOCK_EX | LOCK_NB) == 0);
        std::cout << velmo::rollback_msr() << (flock(late, LOCK_EX | LOCK_NB) == 0);
      }),
      (Outcome{0, "01011", Warning("Another run has switched the prefetchers of the CPU off.")}));
  EXPECT_EQ(shared.Get(0x1A4), kOld);
  const FakeMsr msr;  // an empty file, which cannot be read
  EXPECT_EQ(RunForked([] {
              velmo::find_offset({.vendor = velmo::CpuInfo::kIntel, .model = 0x8F});
              std::cout << velmo::disable_prefetch(3) << velmo::rollback_msr();
            }),
            (Outcome{0, "01", Warning("Failed to read msr.")}));
  msr.Set(0x1A4, kOld);
  EXPECT_EQ(RunForked([] {
              velmo::install_exit_guards();
              const rlimit below_register{0x1A4, 0x1A4};
              setrlimit(RLIMIT_FSIZE, &below_register);
              velmo::find_offset({.vendor = velmo::CpuInfo::kIntel, .model = 0x8F});
              std::cout << velmo::disable_prefetch(3) << velmo::rollback_msr();
            }),
            (Outcome{0, "01", Warning("Failed to write msr.")}));
}

}  // namespace velmo_test
