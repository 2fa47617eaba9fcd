#include "app/log_file.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "app/signal_handler.h"
#include "support/subprocess.h"

namespace velmo_test {
namespace {

// Opens a log at `path`, writes to it and prints whether the stream still holds.
Outcome WriteLog(const std::string& path) {
  return RunForked([&] {
    umask(077);
    velmo::LogFile log(path);
    log << "new\n" << std::flush;
    std::cout << (log ? "written" : "lost");
  });
}

TEST(LogFile, IsOpenToAllAndReplacesWhatWasThereOnlyInAFileOfItsOwn) {
  const TempDir dir;
  const std::string at = dir.path() + "/";
  dir.Write("old", "an older and longer log\n");
  for (const char* name : {"fresh", "old"}) {
    EXPECT_EQ(WriteLog(at + name), (Outcome{0, "written", ""}));
    EXPECT_EQ(ReadAll(at + name), "new\n");
    EXPECT_EQ(std::filesystem::status(at + name).permissions(), std::filesystem::perms{0666});
  }
  const std::string victim = dir.Write("victim", "precious");
  const std::string linked = dir.Write("linked", "precious");
  std::filesystem::create_symlink(linked, at + "link");
  std::filesystem::create_hard_link(victim, at + "hard_link");
  ASSERT_EQ(mkfifo((at + "fifo").c_str(), 0600), 0);
  for (const char* name : {"link", "hard_link", "fifo", "no/where"}) {
    EXPECT_EQ(WriteLog(at + name), (Outcome{0, "lost", ""})) << name;
  }
  EXPECT_EQ(ReadAll(victim) + ReadAll(linked), "preciousprecious");

  const std::string full = at + "full";
  EXPECT_EQ(RunForked([&] {
              velmo::install_exit_guards();
              velmo::LogFile(full) << std::string(100'000, 'x');  // longer than the stream's buffer
              std::cout << velmo::LogFile::any_lost();
            }),
            (Outcome{0, "0", ""}));
  EXPECT_EQ(RunForked([&] {
              velmo::install_exit_guards();
              const rlimit limit{4096, 4096};
              setrlimit(RLIMIT_FSIZE, &limit);
              velmo::LogFile(full) << std::string(5000, 'x');
              std::cout << velmo::LogFile::any_lost() << std::filesystem::exists(full);
            }),
            (Outcome{0, "10", Warning("Failed to write log file " + full + ": File too large")}));
}

TEST(LogFile, LostEndsTheRunWithStatus1) {
  const TempDir dir;
  const std::string cpu = std::to_string(sched_getcpu());
  // The limit holds for files, of which the outcome's are two, but not for a pipe.
  const char* script = R"(cd "$1"
      (ulimit -f 0; exec "$2" -Y -k "$3" -m 1m -i 1 2>&1 >/dev/null) | cat >&2
      exit "${PIPESTATUS[0]}")";
  const Outcome outcome = RunForked([&] {
    execl("/bin/bash", "bash", "-c", script, "bash", dir.path().c_str(), VelmoPath().c_str(),
          cpu.c_str(), nullptr);
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("Failed to write log file mem0_"), std::string::npos) << outcome;
}

}  // namespace
}  // namespace velmo_test
