#include "platform/watch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "app/clock.h"
#include "platform/cgroup.h"
#include "platform/cpu_account.h"
#include "platform/prefetch.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// Until threads that wait for their CPUs run again, in ns.
constexpr long kLongestWait = 10'000'000;

Reading smaller_of(const Reading& a, const Reading& b) {
  return combine(a, b, [](double x, double y) { return std::min(x, y); });
}

const CpuTime* find_time(const std::map<int, CpuTime>& times, int cpu) {
  const auto found = times.find(cpu);
  return found == times.end() ? nullptr : &found->second;
}

}  // namespace

WatchSources::WatchSources() : msr(MSR_PATH) {}

Watch::Watch(WatchSources from)
    : from_(std::move(from)), cpu_groups_(cgroup_folders("cpu", from_.root)) {}

void Watch::Start(WatchSettings settings) {
  settings_ = std::move(settings);
  before_ = {};
  probes_.clear();
  for (const WatchedThread& thread : settings_.threads) {
    probes_.emplace_back(thread.tid, from_.root, from_.clocks);
  }
  ReadMachine(before_);
  // What the first reading has to touch would count as faults of the calling thread.
  if (!probes_.empty()) probes_.front().Read(buffer_);
  ReadThreads(before_);
}

WatchRecord Watch::Stop() {
  AwaitRunning();
  Snapshot after;
  ReadThreads(after);
  ReadMachine(after);
  WatchRecord record;
  record.seconds = after.wall_seconds - before_.wall_seconds;
  CompareThreads(after, record);
  CompareCpus(after, record);
  CompareClocks(after, record);
  CompareOthers(after, record);
  CompareMachine(after, record);
  return record;
}

// The kernel counts a wait when it ends: of a thread that waits now, it would seem lost for no
// reason.
void Watch::AwaitRunning() const {
  const long deadline = monotonic_ns() + kLongestWait;
  for (const WatchedThread& thread : settings_.threads) {
    double wall = 0;
    double first = 0;
    double ran = 0;
    from_.clocks(thread.tid, wall, first);
    do {
      from_.clocks(thread.tid, wall, ran);
    } while (ran == first && monotonic_ns() < deadline);
  }
}

void Watch::ReadThreads(Snapshot& snapshot) {
  double ignored = 0;
  from_.clocks(0, snapshot.wall_seconds, ignored);  // of the calling thread
  snapshot.threads.resize(probes_.size());
  for (size_t i = 0; i < probes_.size(); ++i) snapshot.threads[i] = probes_[i].Read(buffer_);
}

void Watch::ReadMachine(Snapshot& snapshot) const {
  const std::string stat = from_.root + "/proc/stat";
  std::string text;
  if (!read_text(stat, text)) snapshot.times_failure = stat + ": " + std::strerror(errno);
  snapshot.times = parse_cpu_times(text);
  for (const WatchedThread& thread : settings_.spinning) {
    double ignored = 0;
    from_.clocks(thread.tid, ignored, snapshot.spun_seconds[thread.cpu]);
  }
  for (const WatchedThread& thread : settings_.threads) {
    const auto [at, added] = snapshot.cpus.try_emplace(thread.cpu);
    if (added) at->second = read_cpu_counters(thread.cpu, from_.root, from_.msr);
  }
  snapshot.machine = read_machine_counters(from_.root, cpu_groups_);
  for (const int node : settings_.nodes) {
    snapshot.free_bytes.push_back(read_free_bytes(node, from_.root));
  }
}

void Watch::CompareThreads(const Snapshot& after, WatchRecord& record) const {
  record.threads = static_cast<int>(probes_.size());
  record.cpu_seconds.value = record.seconds;
  for (size_t i = 0; i < probes_.size(); ++i) {
    const ThreadCounters& a = before_.threads[i];
    const ThreadCounters& b = after.threads[i];
    const auto add = [&](Reading ThreadCounters::*counter, Reading& sum) {
      sum = sum_of(sum, risen(a.*counter, b.*counter));
    };
    const auto raise = [&](Reading ThreadCounters::*counter, Reading& most) {
      most = larger_of(most, risen(a.*counter, b.*counter));
    };
    record.cpu_seconds = smaller_of(record.cpu_seconds, risen(a.cpu_seconds, b.cpu_seconds));
    raise(&ThreadCounters::waited_seconds, record.waited_seconds);
    raise(&ThreadCounters::involuntary_switches, record.involuntary_switches);
    add(&ThreadCounters::voluntary_switches, record.voluntary_switches);
    add(&ThreadCounters::migrations, record.migrations);
    add(&ThreadCounters::minor_faults, record.minor_faults);
    add(&ThreadCounters::major_faults, record.major_faults);
  }
}

void Watch::CompareCpus(const Snapshot& after, WatchRecord& record) const {
  std::map<int, std::vector<ThreadSpan>> spans;
  for (size_t i = 0; i < probes_.size(); ++i) {
    const ThreadCounters& a = before_.threads[i];
    const ThreadCounters& b = after.threads[i];
    const Reading given_up = risen(a.voluntary_switches, b.voluntary_switches);
    spans[settings_.threads[i].cpu].push_back(
        {b.wall_seconds - a.wall_seconds, risen(a.cpu_seconds, b.cpu_seconds),
         risen(a.waited_seconds, b.waited_seconds), given_up.known() && given_up.value == 0});
  }
  record.cpus = static_cast<int>(spans.size());
  for (const auto& [cpu, threads] : spans) {
    const CpuTime* const a = find_time(before_.times, cpu);
    const CpuTime* const b = find_time(after.times, cpu);
    const CpuAccount account = account_for(threads, a, b);
    record.stolen_seconds = larger_of(record.stolen_seconds, account.stolen_seconds);
    record.other_work_seconds = larger_of(record.other_work_seconds, account.other_work_seconds);
    record.paused_seconds = larger_of(record.paused_seconds, account.paused_seconds);
    const bool known = a != nullptr && b != nullptr;
    const auto ticks = static_cast<double>(known ? b->interrupts - a->interrupts : 0);
    record.interrupt_seconds =
        larger_of(record.interrupt_seconds, {ticks * kTickSeconds, account.stolen_seconds.reason});
    record.throttle_count = sum_of(record.throttle_count, risen(before_.cpus.at(cpu).throttle_count,
                                                                after.cpus.at(cpu).throttle_count));
  }
}

void Watch::CompareClocks(const Snapshot& after, WatchRecord& record) const {
  Reading actual;
  Reading base;
  Reading hz;
  for (const auto& [cpu, counters] : after.cpus) {
    const CpuCounters& earlier = before_.cpus.at(cpu);
    actual = sum_of(actual, risen(earlier.actual_cycles, counters.actual_cycles));
    base = sum_of(base, risen(earlier.base_cycles, counters.base_cycles));
    hz = sum_of(hz, sum_of(earlier.clock_hz, counters.clock_hz));
  }
  if (actual.known() && base.known() && base.value > 0) {
    record.clock = {actual.value / base.value};
    record.clock_unit = "base clocks";
  } else if (hz.known() && !after.cpus.empty()) {
    record.clock = {hz.value / static_cast<double>(2 * after.cpus.size())};
    record.clock_unit = kHertz;
  } else if (actual.known() && base.known()) {
    record.clock.reason = "the registers that count cycles stand still";
  } else {
    record.clock.reason = actual.reason + (actual.known() ? "" : "; ") + hz.reason;
  }
}

void Watch::CompareOthers(const Snapshot& after, WatchRecord& record) const {
  std::set<int> own(settings_.helper_cpus.begin(), settings_.helper_cpus.end());
  for (const WatchedThread& thread : settings_.threads) own.insert(thread.cpu);
  for (const auto& [cpu, time] : after.times) {
    const CpuTime* const earlier = find_time(before_.times, cpu);
    if (own.contains(cpu) || earlier == nullptr) continue;
    double seconds = kTickSeconds * static_cast<double>(time.busy - earlier->busy);
    if (const auto spun = after.spun_seconds.find(cpu); spun != after.spun_seconds.end()) {
      // What the host took from a CPU that had no work but to spin, it took from nobody.
      seconds -= kTickSeconds * static_cast<double>(time.stolen - earlier->stolen);
      seconds -= spun->second - before_.spun_seconds.at(cpu);
      seconds = std::max(seconds, 0.0);
    }
    ++record.other_cpus;
    record.other_cpus_busy_seconds.value += seconds;
    if (record.busiest_cpu >= 0 && seconds <= record.busiest_cpu_seconds.value) continue;
    record.busiest_cpu = cpu;
    record.busiest_cpu_seconds.value = seconds;
  }
  if (record.other_cpus > 0) return;
  record.other_cpus_busy_seconds.reason = record.busiest_cpu_seconds.reason =
      after.times_failure.empty() ? "there is no other CPU" : after.times_failure;
}

void Watch::CompareMachine(const Snapshot& after, WatchRecord& record) const {
  const MachineCounters& a = before_.machine;
  const MachineCounters& b = after.machine;
  record.cpu_pressure_seconds = risen(a.cpu_pressure_seconds, b.cpu_pressure_seconds);
  record.memory_pressure_seconds = risen(a.memory_pressure_seconds, b.memory_pressure_seconds);
  record.throttled_periods = risen(a.throttled_periods, b.throttled_periods);
  record.throttled_seconds = risen(a.throttled_seconds, b.throttled_seconds);
  record.swapped_in_pages = risen(a.swapped_in_pages, b.swapped_in_pages);
  record.swapped_out_pages = risen(a.swapped_out_pages, b.swapped_out_pages);
  record.migrated_pages = risen(a.migrated_pages, b.migrated_pages);
  for (size_t i = 0; i < settings_.nodes.size(); ++i) {
    record.nodes.push_back({settings_.nodes[i], before_.free_bytes[i], after.free_bytes[i]});
  }
}

}  // namespace velmo
