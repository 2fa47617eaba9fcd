#include "survey/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>

#include "app/clock.h"
#include "app/console.h"
#include "app/signal_handler.h"
#include "app/text.h"
#include "app/threads.h"
#include "platform/prefetch.h"
#include "platform/text_file.h"
#include "survey/record_json.h"

namespace velmo {
namespace {

constexpr int kNotedSignals[] = {SIGINT, SIGTERM, SIGQUIT, SIGTSTP, SIGHUP};

sigset_t noted_set() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signum : kNotedSignals) sigaddset(&set, signum);
  return set;
}

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

bool write_all(int fd, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

constexpr char kPrefetchersOff[] = "prefetchers_off";

// The life of a child: it answers to its parent's end, not to the terminal. A register is `saved`
// by both, but changed here alone, and only once the end of the parent would be told.
[[noreturn]] void run_child(const CellPlan& plan, double ticks, int parent, bool saved, int out,
                            int err) {
  std::signal(SIGTERM, signal_handler);
  for (const int signum : {SIGINT, SIGQUIT, SIGTSTP, SIGHUP}) std::signal(signum, SIG_IGN);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const sigset_t set = noted_set();
  sigprocmask(SIG_UNBLOCK, &set, nullptr);
  if (getppid() != parent) raise(SIGTERM);
  dup2(err, STDERR_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
  try {
    const bool off = saved && switch_saved_off();
    Json json = to_json(measure_cell(plan, ticks));
    json[kPrefetchersOff] = off;
    const bool sent = write_all(out, json.dump());
    restore_msr();  // the parent does so, too, unless it was killed meanwhile
    if (sent) _exit(0);
  } catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
  }
  restore_msr();
  _exit(1);
}

// All that comes out of `fd` until its end; false at the time limit or at an end signal. The
// signals are blocked but for the waits.
bool read_until(int fd, long deadline, const sigset_t& waiting, std::string& text) {
  char buffer[65536];
  for (;;) {
    const long left = deadline - monotonic_ns();
    if (left <= 0 || EndSignalsNoted::signal() != 0) return false;
    const timespec wait{left / 1'000'000'000, left % 1'000'000'000};
    pollfd readable{fd, POLLIN, 0};
    if (ppoll(&readable, 1, &wait, &waiting) <= 0) continue;
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n == 0) return true;
    if (n > 0) text.append(buffer, static_cast<size_t>(n));
    if (n < 0 && errno != EINTR) return true;
  }
}

// What the child wrote to its standard error, in one line.
std::string message_of(int err) {
  std::string text(2000, '\0');
  const ssize_t n = pread(err, text.data(), text.size(), 0);
  text.resize(static_cast<size_t>(std::max<ssize_t>(n, 0)));
  if (const size_t at = text.rfind(error_prefix()); at != std::string::npos) {
    text.erase(0, at + std::strlen(error_prefix()));
  }
  std::string line;
  for (const char c : text) {
    if (c == '\033') continue;
    const bool blank = c == '\n' || c == ' ';
    if (!blank) line += c;
    if (blank && !line.empty() && line.back() != ' ') line += ' ';
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

std::string end_of(int status, const std::string& written) {
  if (WIFSIGNALED(status)) {
    return std::string("The measuring process was ended by a signal: ") +
           strsignal(WTERMSIG(status)) + (written.empty() ? "" : ". " + written);
  }
  return written.empty() ? "The measuring process ended without a result" : written;
}

bool may_switch(const CellPlan& plan, const std::set<int>& stuck) {
  if (plan.latency_cpu < 0 || stuck.contains(plan.latency_cpu)) return false;
  return access(numbered_path(MSR_PATH, plan.latency_cpu).c_str(), R_OK | W_OK) == 0;
}

}  // namespace

volatile std::sig_atomic_t EndSignalsNoted::noted_ = 0;

void EndSignalsNoted::Note(int signum) {
  if (noted_ == 0) noted_ = signum;
}

EndSignalsNoted::EndSignalsNoted() {
  noted_ = 0;
  struct sigaction action {};
  action.sa_handler = Note;
  for (const int signum : kNotedSignals) {
    struct sigaction before {};
    sigaction(signum, nullptr, &before);
    // nohup's wish is kept.
    if (signum != SIGHUP || before.sa_handler != SIG_IGN) sigaction(signum, &action, nullptr);
  }
  const sigset_t set = noted_set();
  sigprocmask(SIG_UNBLOCK, &set, &previous_);
}

EndSignalsNoted::~EndSignalsNoted() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }

ChildResult measure_in_child(const CellPlan& plan, double ticks_per_second, double limit,
                             std::set<int>& stuck) {
  ChildResult result;
  int ends[2];
  const Descriptor err(memfd_create("velmo", MFD_CLOEXEC));
  if (err.get() < 0 || pipe2(ends, O_CLOEXEC) != 0) {
    result.message = std::string("Failed to start a process: ") + std::strerror(errno);
    return result;
  }
  const Descriptor in(ends[0]);
  Descriptor out(ends[1]);

  const sigset_t set = noted_set();
  sigset_t waiting;
  sigprocmask(SIG_BLOCK, &set, &waiting);
  const bool wanted = may_switch(plan, stuck);
  const bool saved = wanted && save_prefetch(plan.latency_cpu);
  const int parent = getpid();
  const pid_t child = fork();
  if (child == 0) run_child(plan, ticks_per_second, parent, saved, out.get(), err.get());
  out.Close();
  std::string text;
  if (child < 0) {
    result.message = std::string("Failed to start a process: ") + std::strerror(errno);
  } else {
    const long deadline = monotonic_ns() + static_cast<long>(limit * 1e9);
    const bool ended = read_until(in.get(), deadline, waiting, text);
    if (!ended) kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!ended) {
      result.message = EndSignalsNoted::signal() != 0
                           ? "Interrupted"
                           : "Took longer than " + duration_text(limit) + " and was ended";
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || text.empty()) {
      result.message = end_of(status, message_of(err.get()));
    } else {
      try {
        const Json json = Json::parse(text);
        result.prefetchers_off = json.at(kPrefetchersOff).get<bool>();
        result.measured = measured_from_json(json);
      } catch (const std::exception& failure) {
        result.message = std::string("The measuring process sent no result: ") + failure.what();
      }
    }
  }
  restore_msr();
  const bool refused = result.measured && !result.prefetchers_off;
  if (wanted && (!saved || refused)) stuck.insert(plan.latency_cpu);
  sigprocmask(SIG_SETMASK, &waiting, nullptr);
  return result;
}

}  // namespace velmo
