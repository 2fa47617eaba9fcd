#include "platform/tool.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <sstream>

#include "app/clock.h"

namespace velmo {
namespace {

constexpr long kNsPerMs = 1000000;

// Starts the program with its standard output at `out`; 0: started, as process `child`.
int start(const std::string& path, const std::vector<std::string>& arguments, int out,
          pid_t& child) {
  std::vector<char*> words{const_cast<char*>(path.c_str())};
  for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_adddup2(&files, out, STDOUT_FILENO);
  const int error = posix_spawn(&child, path.c_str(), &files, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  return error;
}

// Appends what comes from `fd` to `text` until its end or until `deadline` (CLOCK_MONOTONIC, ns).
void collect(int fd, long deadline, std::string& text) {
  constexpr size_t kMaxText = size_t{1} << 20;
  char part[4096];
  for (;;) {
    const long left = (deadline - monotonic_ns()) / kNsPerMs;
    pollfd ready{.fd = fd, .events = POLLIN, .revents = 0};
    if (left <= 0 || poll(&ready, 1, static_cast<int>(left)) == 0) return;
    const ssize_t got = read(fd, part, sizeof part);
    if (got == 0 || (got < 0 && errno != EINTR)) return;
    if (got > 0 && text.size() < kMaxText) text.append(part, static_cast<size_t>(got));
  }
}

// The status of `child` when it has ended by `deadline`, else -1.
int wait_until(pid_t child, long deadline) {
  int status = 0;
  for (;;) {
    if (waitpid(child, &status, WNOHANG) != 0) return status;
    if (monotonic_ns() > deadline) return -1;
    usleep(1000);
  }
}

}  // namespace

std::string find_tool(const std::string& name, const std::string& search_path) {
  std::istringstream folders(search_path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string path = folder;
    path += '/' + name;
    if (folder.starts_with('/') && access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

ToolOutput run_tool(const std::string& path, const std::vector<std::string>& arguments,
                    int limit_ms) {
  const long deadline = monotonic_ns() + limit_ms * kNsPerMs;
  ToolOutput output;
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {"", std::string("no pipe: ") + std::strerror(errno)};
  pid_t child = -1;
  const int error = start(path, arguments, ends[1], child);
  close(ends[1]);
  if (error == 0) {
    collect(ends[0], deadline, output.text);
    const int status = wait_until(child, deadline);
    if (status == -1) {
      output.failure = path + " took longer than " + std::to_string(limit_ms) + " ms";
      kill(child, SIGKILL);
      // One that the kernel holds is not waited for.
      wait_until(child, monotonic_ns() + 100 * kNsPerMs);
    } else if (!WIFEXITED(status)) {
      output.failure = path + " was ended by signal " + std::to_string(WTERMSIG(status));
    } else if (WEXITSTATUS(status) != 0) {
      output.failure = path + " ended with status " + std::to_string(WEXITSTATUS(status));
    }
  } else {
    output.failure = path + ": " + std::strerror(error);
  }
  close(ends[0]);
  return output;
}

}  // namespace velmo
