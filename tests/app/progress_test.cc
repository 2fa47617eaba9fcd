#include "app/progress.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <iostream>
#include <regex>
#include <thread>

#include "platform/usable.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

using velmo_test::OnTerminal;

// A phase that writes "out" and "err" in its middle, on a line that is drawn every 10 ms.
void Wait(const Phase& phase, int fd = STDERR_FILENO) {
  constexpr std::chrono::milliseconds kOften(10);
  constexpr auto kWait = kOften * 20;
  {
    const Progress progress(phase, {.fd = fd, .first = kOften, .every = kOften});
    std::this_thread::sleep_for(kWait);
    std::cout << "out\n" << std::flush;
    std::this_thread::sleep_for(kWait);
    std::cerr << "err\n";
  }
  std::cout << "end\n" << std::flush;
}

TEST(Progress, IsDrawnAndErasedBeforeAnyOutput) {
  const std::atomic<int64_t> half{1};
  const auto unseen = [&](const std::function<void()>& body) {
    EXPECT_EQ(OnTerminal(80, body), "out\r\nerr\r\nend\r\n");
  };
  const std::tuple<Phase, unsigned short, std::string> seen[] = {
      {{.label = "Waiting", .left = 100}, 80, "Waiting: [0-9]+ s, about 1 min [34][0-9] s left"},
      {{.label = "Waiting", .left = 1e-9}, 0, "Waiting: [0-9]+ s"},
      {{.label = "Half", .steps = 2, .done = &half}, 80, "Half: [0-9]+ s, about [0-9]+ s left"},
      {{.label = "Long", .begun = monotonic_ns() - 3'700'000'000'000}, 80, "Long: 1 h 1 min"},
      {{.label = "Waiting for long"}, 10, "Waiting f"},
  };
  for (const auto& [phase, columns, line] : seen) {
    const std::string drawn = "(\r" + line + "\033\\[K)+\r\033\\[K";
    const std::regex expected(drawn + "out\r\n" + drawn + "err\r\nend\r\n");
    const std::string text = OnTerminal(columns, [&phase = phase] { Wait(phase); });
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
  }
  unseen([] { Wait({.label = "On a CPU that measures", .measuring = usable_cpus()}); });
  unseen([] {
    if (fork() == 0) {
      setpgid(0, 0);
      Wait({.label = "In the background"});
      _exit(0);
    }
    wait(nullptr);
  });
  const velmo_test::TempDir dir;
  const std::string file = dir.Write("file", "");
  unseen([&] { Wait({.label = "Not a terminal"}, open(file.c_str(), O_WRONLY)); });
  EXPECT_EQ(velmo_test::ReadAll(file), "");
}

TEST(Progress, KeepsTheStateOfTheStreams) {
  const std::string text = OnTerminal(80, [] {
    std::cout.setstate(std::ios::failbit);
    { const Progress progress({.label = "x"}); }
    std::cerr << std::cout.fail();
  });
  EXPECT_EQ(text, "1");
}

}  // namespace
}  // namespace velmo
