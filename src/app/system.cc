#include "app/system.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <latch>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "app/console.h"

namespace velmo {
namespace {

// More CPUs or nodes than any machine has; bounds what a damaged list can make us allocate.
constexpr size_t kMaxListEntries = 65536;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A set of the one CPU `cpu`; empty, which the kernel refuses, when it lies beyond the set.
cpu_set_t only(unsigned int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (cpu < CPU_SETSIZE) CPU_SET(cpu, &set);
  return set;
}

// Runs a standard conversion; its exceptions come out with the text that caused them.
template <typename Convert>
auto convert(const std::string& s, Convert standard_conversion) {
  try {
    return standard_conversion(s);
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("Not a number: " + s);
  } catch (const std::out_of_range&) {
    throw std::out_of_range("Number out of range: " + s);
  }
}

template <typename T>
[[noreturn]] void reject_range(const T& value) {
  Fatal() << "Invalid range value. Check range value: " << value << '\n';
}

std::string range_text(long first, long last) {
  return std::to_string(first) + "-" + std::to_string(last);
}

}  // namespace

void check_root() {
  if (getuid() != 0) Warn() << "VELMO requires root privilege\n";
}

bool change_scheduling_priority(int inc) {
  if (nice(inc) != 1) return true;
  Warn() << "Failed to change a scheduling priority.\n";
  return false;
}

void set_cpu_affinity(unsigned int cpu) {
  const cpu_set_t set = only(cpu);
  if (sched_setaffinity(0, sizeof set, &set) != 0) {
    Fatal() << "Failed to pin process to CPU " << cpu << '\n';
  }
}

void set_thread_affinity(std::thread* t, unsigned int cpu) {
  const cpu_set_t set = only(cpu);
  if (pthread_setaffinity_np(t->native_handle(), sizeof set, &set) != 0) {
    Fatal() << "Failed to pin thread to CPU " << cpu << '\n';
  }
}

void check_still_pinned(unsigned int cpu) {
  const cpu_set_t pinned = only(cpu);
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  // Fails, and tells nothing, where the kernel has more CPUs than the set.
  if (sched_getaffinity(0, sizeof allowed, &allowed) < 0 || CPU_EQUAL(&allowed, &pinned)) return;
  Fatal() << "CPU " << cpu << " was taken away while it measured; the result is void. It went "
          << "offline, or somebody moved the thread\n";
}

EndSignalsBlocked::EndSignalsBlocked() {
  sigset_t blocked;
  sigemptyset(&blocked);
  for (const int signum : kEndSignals) sigaddset(&blocked, signum);
  sigaddset(&blocked, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &blocked, &previous_);
}

EndSignalsBlocked::~EndSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

void run_pinned(const std::vector<int>& cpus, const std::function<void(size_t)>& task) {
  std::latch all_pinned(1);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < cpus.size(); ++i) {
    threads.push_back(start_thread([&all_pinned, &task, i] {
      all_pinned.wait();
      task(i);
    }));
    set_thread_affinity(&threads.back(), cpus[i]);
  }
  all_pinned.count_down();
  for (std::thread& thread : threads) thread.join();
}

long monotonic_ns() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000L + now.tv_nsec;
}

void usec_sleep(double us) {
  if (us <= 0.000001) return;
  const double end = static_cast<double>(monotonic_ns()) + us * 1000;
  while (end > static_cast<double>(monotonic_ns())) {
  }
}

std::string vector_to_str_range(const std::vector<int>& v, int start) {
  std::string text;
  for (size_t i = start; i < v.size(); ++i) {
    if (!text.empty()) text += ',';
    text += std::to_string(v[i]);
    const size_t first = i;
    while (i + 1 < v.size() && v[i + 1] == v[i] + 1) ++i;
    if (i > first) text += '-' + std::to_string(v[i]);
  }
  return text;
}

std::vector<int> str_range_to_vector(const std::string& s) {
  std::string text = s;
  std::replace(text.begin(), text.end(), ',', ' ');
  for (const char c : text) {
    if (c != ' ' && c != '-' && !is_digit(c)) {
      Fatal() << "Invalud range value: " << c << '\n';
    }
  }

  std::vector<int> list;
  std::istringstream in(text);
  constexpr long kMaxInt = std::numeric_limits<int>::max();
  long start = -1;  // the number that a following "-m" would close; -1: none
  while (in >> std::ws, !in.eof()) {
    const auto at = static_cast<size_t>(in.tellg());
    long value = 0;
    if (!(in >> value) || value > kMaxInt || value < -kMaxInt) {
      reject_range(text.substr(at, text.find(' ', at) - at));
    }
    if (text[at] != '-') {
      if (list.size() == kMaxListEntries) reject_range(value);
      list.push_back(static_cast<int>(value));
      start = value;
      continue;
    }
    const long last = -value;
    if (start < 0) reject_range(last);
    if (last <= start || last - start + list.size() > kMaxListEntries) {
      reject_range(range_text(start, last));
    }
    for (long next = start + 1; next <= last; ++next) list.push_back(static_cast<int>(next));
    start = -1;
  }
  std::sort(list.begin(), list.end());
  list.erase(std::unique(list.begin(), list.end()), list.end());
  return list;
}

bool is_number(const std::string& s) {
  // The expression ([(-|+)]|[0-9])+, whose bracket holds a range from '(' to '|', wider than it
  // looks; callers count on it. Written out, since the library's matcher recurses per character.
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '(' && c <= '|'; });
}

int to_int(const std::string& s) {
  return convert(s, [](const std::string& text) { return std::stoi(text); });
}

long to_long(const std::string& s) {
  return convert(s, [](const std::string& text) { return std::stol(text); });
}

unsigned long long to_unsigned(const std::string& s) {
  return convert(s, [](const std::string& text) { return std::stoull(text); });
}

int64_t get_bytes(const std::string& s) {
  const char unit = s.empty() ? '\0' : s.back();
  if (is_digit(unit)) return to_long(s);

  const std::string digits = s.substr(0, s.empty() ? 0 : s.size() - 1);
  int64_t scale = 0;
  if (unit == 'g' || unit == 'G') scale = int64_t{1} << 30;
  if (unit == 'm' || unit == 'M') scale = int64_t{1} << 20;
  if (unit == 'k' || unit == 'K') scale = int64_t{1} << 10;
  int64_t bytes = 0;
  if (scale == 0 || !is_number(digits) || __builtin_mul_overflow(to_long(digits), scale, &bytes)) {
    Fatal() << "Invalid memory size: " << s << '\n';
  }
  return bytes;
}

}  // namespace velmo
