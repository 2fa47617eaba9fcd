#include "app/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "support/subprocess.h"

namespace velmo_test {

TEST(Console, KeepsFilesOutOfClosedStreamsAndTellsLostOutput) {
  const Outcome outcome = RunForked([] {
    for (int fd = 0; fd <= 2; ++fd) close(fd);
    velmo::init_console();
    _exit(open("/dev/null", O_RDONLY) > 2 ? 0 : 1);
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(RunForked([] {
              std::cout.setstate(std::ios::badbit);
              velmo::check_output();
            }),
            (Outcome{1, "", Error("Failed to write to standard output")}));
}

}  // namespace velmo_test
