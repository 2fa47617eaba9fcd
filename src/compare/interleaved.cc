#include "compare/interleaved.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace velmo {
namespace {

// While it lives, this process outlives the keys that end its child, and can tell how that ended.
class KeysIgnored {
 public:
  KeysIgnored() {
    for (size_t i = 0; i < std::size(kKeys); ++i) {
      before_[i] = std::signal(kKeys[i], SIG_IGN);  // NOLINT(cert-err33-c)
    }
  }
  ~KeysIgnored() { GiveBack(); }
  KeysIgnored(const KeysIgnored&) = delete;
  KeysIgnored& operator=(const KeysIgnored&) = delete;

  void GiveBack() const {
    for (size_t i = 0; i < std::size(kKeys); ++i) std::signal(kKeys[i], before_[i]);
  }

 private:
  static constexpr int kKeys[] = {SIGINT, SIGQUIT};
  void (*before_[std::size(kKeys)])(int);
};

// Runs `script` with `arguments` as $0, $1, ... in a shell that is ended with this process, its
// standard output on descriptor `out`. Its exit status; 128 and the signal that ended it.
int run_shell(std::string script, std::vector<std::string> arguments, int out) {
  std::string shell = "/bin/sh";
  std::string option = "-c";
  std::vector<char*> words = {shell.data(), option.data(), script.data()};
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);

  const KeysIgnored ignored;
  const pid_t child = fork();
  if (child == 0) {
    ignored.GiveBack();
    for (const int ignored_here : {SIGPIPE, SIGXFSZ}) std::signal(ignored_here, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (dup2(out, STDOUT_FILENO) != -1) execv(shell.c_str(), words.data());
    _exit(127);
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  if (child == -1) throw std::runtime_error(std::string("Failed to fork: ") + std::strerror(errno));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

void survey_interleaved(const Interleaved& plan, std::ostream& progress) {
  std::error_code failure;
  if (!std::filesystem::create_directory(plan.directory, failure)) {
    throw std::runtime_error("Failed to make the directory " + plan.directory + ": " +
                             (failure ? failure.message() : "it exists"));
  }
  for (const int side : {0, 1}) std::filesystem::create_directory(plan.folder(side));

  const int all = 4 * plan.rounds;
  const auto check = [&](int status, int taken, const std::string& what) {
    if (status == 0) return;
    throw std::runtime_error(what + " ended with status " + std::to_string(status) + ". " +
                             std::to_string(taken) + " of " + std::to_string(all) +
                             " surveys were taken before, and are kept in " + plan.directory);
  };
  constexpr int kOrder[] = {0, 1, 1, 0};
  for (int i = 0; i < all; ++i) {
    const int side = kOrder[i % 4];
    const std::string& command = plan.commands[side];
    const std::string file = plan.folder(side) + '/' + std::to_string(i + 1) + ".json";
    progress << "Survey " << i + 1 << " of " << all << ", after: " << command << std::endl;
    check(run_shell(command, {"sh"}, STDERR_FILENO), i, "The command \"" + command + '"');
    // The options stand last, so that whatever they are the file has its name.
    check(run_shell(R"(exec "$0" survey -o "$1" )" + plan.options, {plan.program, file},
                    STDERR_FILENO),
          i, "velmo survey " + plan.options + ", after \"" + command + "\",");
    if (!std::filesystem::exists(file)) {
      throw std::runtime_error("velmo survey " + plan.options + " left no file " + file);
    }
  }
}

}  // namespace velmo
