#include "app/signal_handler.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <termios.h>

#include <csignal>
#include <new>
#include <stdexcept>

#include "support/fake_machine.h"

namespace velmo_test {

// Takes a page of the stack for every level.
int Recurse(int levels) {
  volatile char page[4096];
  page[0] = static_cast<char>(levels);
  return levels == 0 ? 0 : Recurse(levels - 1) + page[0];
}

TEST(SignalHandler, EveryEndPutsTheRegisterBack) {
  constexpr uint64_t kRegister = 0x1A4;
  const struct {
    void (*leave)();
    int status;
    uint64_t after = 0x1234;
    std::string err = {};
  } rows[] = {
      {[] { std::raise(SIGTSTP); }, 0},
      {[] { std::raise(SIGINT); }, 0},
      {[] { std::raise(SIGTERM); }, 0},
      {[] { std::raise(SIGQUIT); }, 0},
      {[] { std::raise(SIGSEGV); }, 128 + SIGSEGV},
      {[] { std::raise(SIGHUP); }, 128 + SIGHUP},
      {[] { std::raise(SIGPIPE), std::exit(1); }, 1},
      {[] { throw std::runtime_error("broken"); }, 128 + SIGABRT, 0x1234, Error("broken")},
      {[] { std::exit(1); }, 1},
      {[] { Recurse(1 << 30); }, 128 + SIGSEGV},
      {[] {
         velmo::disable_prefetch(3);
         std::exit(1);
       },
       1},
      {[] { throw std::bad_alloc(); }, 1, 0x1234,
       Error("Out of memory. Check the limit on memory (ulimit -v)")},
      {[] {  // a terminal that takes nothing
         int user = -1, terminal = -1;
         if (openpty(&user, &terminal, nullptr, nullptr, nullptr) != 0) return;
         if (tcflow(terminal, TCOOFF) != 0) return;
         velmo::open_line = terminal;
         std::raise(SIGTERM);
       },
       0},
      {[] {
         velmo::MSR_PATH = "/nonexistent/%d";
         std::raise(SIGINT);
       },
       0, 0x2F, Warning("Failed to access msr.") + Warning("Failed to rollback msr.")},
  };
  const FakeMsr msr;
  for (const auto& row : rows) {
    msr.Set(kRegister, 0x1234);
    const Outcome outcome = RunForked([&] {
      velmo::install_exit_guards(velmo::restore_msr);
      velmo::install_signal_handlers();
      velmo::find_offset({.vendor = velmo::CpuInfo::kIntel, .model = 0x8F});
      if (velmo::disable_prefetch(3) && msr.Get(kRegister) == 0x2F) row.leave();
      std::_Exit(99);
    });
    EXPECT_EQ(outcome, (Outcome{row.status, "", row.err})) << "row " << &row - rows;
    EXPECT_EQ(msr.Get(kRegister), row.after) << "row " << &row - rows;
  }
}

}  // namespace velmo_test
