#include "app/progress.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <new>
#include <streambuf>
#include <string_view>
#include <system_error>
#include <thread>

#include "app/console.h"
#include "app/cpu_set.h"
#include "app/text.h"
#include "app/threads.h"

namespace velmo {
namespace {

constexpr size_t kDefaultWidth = 80;

// CPUs of the calling thread without `excluded`.
CpuSet own_cpus_without(const std::vector<int>& excluded) {
  CpuSet cpus = CpuSet::OfCaller().value_or(CpuSet());
  for (const int cpu : excluded) cpus.Remove(cpu);
  return cpus;
}

// A background job would write into what the user types.
bool is_foreground(int terminal) { return tcgetpgrp(terminal) == getpgrp(); }

// Behind a pipe may be the same terminal (tee).
bool may_reach_terminal(int fd) {
  struct stat status;
  return isatty(fd) == 1 ||
         (fstat(fd, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode)));
}

// A longer line would wrap, and only its last row could be erased.
size_t usable_width(int terminal) {
  winsize size{};
  const bool known = ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return (known ? size.ws_col : kDefaultWidth) - 1;
}

// Stands before the buffer of `stream` from now on: `before` is called, then what is written goes
// where it went without.
class Interceptor : public std::streambuf {
 public:
  Interceptor(std::ostream& stream, void (*before)()) : before_(before), target_(stream.rdbuf()) {
    // Keeps the stream's state: a failed write has to show at the end of the run.
    const std::ios::iostate state = stream.rdstate();
    stream.rdbuf(this);
    stream.setstate(state);
  }

 protected:
  int_type overflow(int_type c) override {
    before_();
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    return target_->sputc(traits_type::to_char_type(c));
  }
  std::streamsize xsputn(const char* text, std::streamsize length) override {
    before_();
    return target_->sputn(text, length);
  }
  int sync() override { return target_->pubsync(); }

 private:
  void (*before_)();
  std::streambuf* target_;
};

// Never destroyed: the streams are flushed behind the last destructor.
void intercept_streams(void (*before)()) {
  new Interceptor(std::cerr, before);
  if (may_reach_terminal(STDOUT_FILENO)) new Interceptor(std::cout, before);
}

}  // namespace

class Progress::Drawer {
 public:
  Drawer(const Phase& phase, const ProgressLine& line, const CpuSet& cpus)
      : phase_(phase),
        line_(line),
        cpus_(cpus),
        due_(std::max(Clock::now(),
                      Clock::time_point(std::chrono::nanoseconds(phase.begun)) + line.first)) {
    static std::once_flag intercepted;
    std::call_once(intercepted, intercept_streams, EraseShown);
    {
      const std::lock_guard lock(mutex_);
      shown_ = this;
    }
    const EndSignalsBlocked blocked;
    try {
      thread_ = std::thread(&Drawer::Run, this);
    } catch (const std::system_error&) {
      // A run is worth more than its line.
    } catch (const std::bad_alloc&) {
    }
  }

  ~Drawer() {
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
    }
    end_.notify_one();
    if (thread_.joinable()) thread_.join();
    const std::lock_guard lock(mutex_);
    Erase();
    shown_ = nullptr;
  }

  Drawer(const Drawer&) = delete;
  Drawer& operator=(const Drawer&) = delete;

 private:
  using Clock = std::chrono::steady_clock;  // CLOCK_MONOTONIC, as monotonic_ns

  // What is written passes through here first.
  static void EraseShown() {
    const std::lock_guard lock(mutex_);
    if (shown_ != nullptr) shown_->Erase();
  }

  void Run() try {
    if (!cpus_.ConfineCaller()) return;
    std::unique_lock lock(mutex_);
    while (!ended_) {
      end_.wait_until(lock, due_);
      if (ended_ || Clock::now() < due_) continue;
      Draw();
      due_ = Clock::now() + line_.every;
    }
  } catch (const std::bad_alloc&) {
    // Nor is the line worth an end of the run; who writes erases what stands there.
  }

  void Draw() {
    if (!is_foreground(line_.fd)) return;
    std::string text = phase_.label + ": " + duration_text(seconds_since(phase_.begun));
    const double left = Left();
    if (left > 0) text += ", about " + duration_text(left + 1) + " left";
    text.resize(std::min(text.size(), usable_width(line_.fd)));
    open_line = line_.fd;
    if (Write('\r' + text + "\033[K")) visible_ = true;
    open_line = visible_ ? line_.fd : -1;
  }

  // Output comes in lines of several writes, perhaps one a second: the next drawing leaves them
  // time.
  void Erase() {
    if (visible_) visible_ = !Write(kEraseLine);
    open_line = visible_ ? line_.fd : -1;
    due_ = std::max(due_, Clock::now() + 2 * line_.every);
  }

  // One call for a whole line, so that a program that is ended leaves no half sequence. False,
  // without a wait, where the terminal takes nothing (Ctrl-S, a stalled connection).
  bool Write(std::string_view text) const {
    pollfd terminal{line_.fd, POLLOUT, 0};
    return poll(&terminal, 1, 0) == 1 && (terminal.revents & POLLOUT) != 0 &&
           write(line_.fd, text.data(), text.size()) > 0;
  }

  // In s; 0 or less: not known, or longer than was thought.
  double Left() const {
    const double passed = seconds_since(start_);
    if (phase_.done == nullptr) return phase_.left - passed;
    const auto done = static_cast<double>(phase_.done->load(std::memory_order_relaxed));
    return done > 0 ? passed * (static_cast<double>(phase_.steps) - done) / done : 0;
  }

  const Phase phase_;
  const ProgressLine line_;
  const CpuSet cpus_;
  const long start_ = monotonic_ns();
  static inline std::mutex mutex_;  // of what follows
  static inline Drawer* shown_ = nullptr;
  std::condition_variable end_;
  bool ended_ = false;
  bool visible_ = false;
  Clock::time_point due_;  // of the next drawing
  std::thread thread_;
};

Progress::Progress(const Phase& phase, const ProgressLine& line) {
  if (isatty(line.fd) != 1) return;
  const CpuSet cpus = own_cpus_without(phase.measuring);
  if (cpus.Count() > 0) drawer_ = std::make_unique<Drawer>(phase, line, cpus);
}

Progress::~Progress() = default;

}  // namespace velmo
