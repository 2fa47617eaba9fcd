#include "survey/child.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "app/signal_handler.h"
#include "support/fake_machine.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

constexpr double kTicks = 2e9;
constexpr uint64_t kRegister = 0x1A4;  // of Intel's prefetchers
constexpr uint64_t kOn = 0x40;
constexpr int kPatience = 60;  // s, of what takes milliseconds

// A repeat over a few MiB, on a CPU whose registers are a file.
class SurveyChild : public testing::Test {
 protected:
  SurveyChild() {
    const std::string cpu = msr_.dir.path() + "/cpu" + std::to_string(plan_.latency_cpu);
    if (!std::filesystem::exists(cpu)) {
      std::filesystem::create_directory_symlink(msr_.dir.path() + "/cpu3", cpu);
    }
    CpuInfo intel;
    intel.vendor = CpuInfo::kIntel;
    intel.model = 0x55;
    find_offset(intel);
    msr_.Set(kRegister, kOn);
  }

  ChildResult Measure(double limit = kPatience) {
    return measure_in_child(plan_, kTicks, limit, stuck_);
  }

  // A staircase step that takes longer than any test needs.
  void MakeLong() {
    plan_.cell.kind = kLatencyBySize;
    plan_.chain_bytes = int64_t{1} << 30;
  }

  // Sends `signum` to the next child of this process, or to this process once it has one, when the
  // prefetchers are off.
  pid_t Strike(int signum, bool parent) const {
    const pid_t victim = getpid();
    const pid_t helper = fork();
    if (helper != 0) return helper;
    alarm(kPatience);
    for (;; usleep(1000)) {
      std::ifstream children("/proc/" + std::to_string(victim) + "/task/" + std::to_string(victim) +
                             "/children");
      for (pid_t child = 0; children >> child;) {
        if (child == getpid()) continue;
        while (msr_.Get(kRegister) == kOn) usleep(1000);
        kill(parent ? victim : child, signum);
        _exit(0);
      }
    }
  }

  velmo_test::FakeMsr msr_;
  EndSignalsNoted signals_;
  CellPlan plan_ = [] {
    CellPlan plan;
    plan.cell.kind = kIdleLatency;
    plan.latency_cpu = sched_getcpu();
    plan.chain_bytes = 2 << 20;
    return plan;
  }();
  std::set<int> stuck_;
};

TEST_F(SurveyChild, MeasuresWithThePrefetchersOff) {
  const ChildResult result = Measure();
  ASSERT_TRUE(result.measured) << result.message;
  EXPECT_GT(result.measured->repeat.figures.at(kAverageNs), 0);
  EXPECT_TRUE(result.prefetchers_off);
  EXPECT_EQ(msr_.Get(kRegister), kOn);
}

TEST_F(SurveyChild, ARegisterThatTakesNoValueIsLeftAlone) {
  EXPECT_EQ(velmo_test::RunForked([this] {
              install_exit_guards(restore_msr);  // as main does
              const rlimit below_register{kRegister, kRegister};
              setrlimit(RLIMIT_FSIZE, &below_register);
              const ChildResult result = Measure();
              std::cout << result.message << result.measured.has_value() << result.prefetchers_off
                        << stuck_.size() << save_prefetch(plan_.latency_cpu);
            }),
            (velmo_test::Outcome{0, "1011", ""}));
}

TEST_F(SurveyChild, WhatItSaysIsTheMessage) {
  plan_.memory = {.kind = MemoryKind::kDevdax, .path = msr_.dir.path()};
  const ChildResult result = Measure();
  EXPECT_FALSE(result.measured);
  EXPECT_EQ(result.message, "Failed to allocate memory. Check path or dax device. " +
                                msr_.dir.path() + " is neither a dax device nor a file.");
}

TEST_F(SurveyChild, EndsOfAllKindsAreMessages) {
  MakeLong();
  const pid_t killer = Strike(SIGKILL, false);
  EXPECT_EQ(Measure().message, "The measuring process was ended by a signal: Killed");
  waitpid(killer, nullptr, 0);
  EXPECT_EQ(msr_.Get(kRegister), kOn);
  const pid_t stopper = Strike(SIGSTOP, false);  // by itself it ends no more
  EXPECT_EQ(Measure(2).message, "Took longer than 2 s and was ended");
  waitpid(stopper, nullptr, 0);
  EXPECT_EQ(msr_.Get(kRegister), kOn);
  const pid_t interrupter = Strike(SIGTERM, true);
  EXPECT_EQ(Measure().message, "Interrupted");
  waitpid(interrupter, nullptr, 0);
  EXPECT_EQ(EndSignalsNoted::signal(), SIGTERM);
  EXPECT_EQ(msr_.Get(kRegister), kOn);
}

TEST_F(SurveyChild, PutsTheRegisterBackWhenTheParentIsKilled) {
  MakeLong();
  const velmo_test::Outcome outcome = velmo_test::RunForked([this] {
    install_exit_guards(restore_msr);  // as main does
    Strike(SIGKILL, true);
    Measure();
  });
  EXPECT_EQ(outcome.status, 128 + SIGKILL);
  for (int ms = 0; msr_.Get(kRegister) != kOn && ms < 1000 * kPatience; ++ms) usleep(1000);
  EXPECT_EQ(msr_.Get(kRegister), kOn);
}

}  // namespace
}  // namespace velmo
