#include "platform/cpu_account.h"

#include <algorithm>
#include <cstdint>

namespace velmo {
namespace {

// The least time that `ticks` more on a counter can stand for.
double certain_seconds(int64_t ticks) {
  return kTickSeconds * static_cast<double>(std::max<int64_t>(ticks - 1, 0));
}

// What of `missing` seconds goes to a cause of which the CPU counted `ticks`: all of it as far as
// they can stand for it.
double part_of(double missing, int64_t ticks) {
  const double most = kTickSeconds * static_cast<double>(ticks + 1);
  return missing <= most ? missing : kTickSeconds * static_cast<double>(ticks);
}

// Seconds that the CPU worked for anything but its watched threads, by the ticks; those threads'
// time and the ticks together are uncertain by two.
struct OtherTicks {
  double least;
  double most;
};

OtherTicks other_ticks(const std::vector<ThreadSpan>& spans, const CpuTime& before,
                       const CpuTime& after) {
  const int64_t ticks = (after.busy - before.busy) - (after.stolen - before.stolen);
  double seconds = kTickSeconds * static_cast<double>(ticks);
  for (const ThreadSpan& span : spans) seconds -= span.cpu_seconds.value;
  return {std::max(seconds - 2 * kTickSeconds, 0.0), seconds + 2 * kTickSeconds};
}

// Whether what the thread missed, but for what the host and interrupts took, was a wait or a pause.
void add_missing(const ThreadSpan& span, const Reading& missing, Reading& waited,
                 CpuAccount& account) {
  if (span.awake) {
    waited = larger_of(waited, sum_of(span.waited_seconds, missing));
  } else {
    waited = larger_of(waited, span.waited_seconds);
    account.paused_seconds = larger_of(account.paused_seconds, missing);
  }
}

}  // namespace

Reading ThreadSpan::MissingSeconds() const {
  return combine(cpu_seconds, waited_seconds, [this](double ran, double waited) {
    return std::max(wall_seconds - ran - waited, 0.0);
  });
}

CpuAccount account_for(const std::vector<ThreadSpan>& spans, const CpuTime* before,
                       const CpuTime* after) {
  CpuAccount account;
  Reading waited;  // the longest of a thread
  if (before == nullptr || after == nullptr) {
    account.stolen_seconds.reason = "no times of the CPU in /proc/stat";
    for (const ThreadSpan& span : spans) {
      add_missing(span, span.MissingSeconds(), waited, account);
    }
    account.other_work_seconds = waited;
    return account;
  }

  const int64_t stolen_ticks = after->stolen - before->stolen;
  const int64_t interrupt_ticks = after->interrupts - before->interrupts;
  double stolen = certain_seconds(stolen_ticks);
  double interrupts = certain_seconds(interrupt_ticks);
  for (const ThreadSpan& span : spans) {
    const Reading missing = span.MissingSeconds();
    // A host that never told of stolen time tells of none now.
    const double by_host = after->stolen > 0 ? part_of(missing.value, stolen_ticks) : 0;
    const double by_interrupts = part_of(missing.value - by_host, interrupt_ticks);
    stolen = std::max(stolen, by_host);
    interrupts = std::max(interrupts, by_interrupts);
    add_missing(span, {missing.value - by_host - by_interrupts, missing.reason}, waited, account);
  }
  account.stolen_seconds.value = stolen;

  const OtherTicks ticks = other_ticks(spans, *before, *after);
  account.other_work_seconds.value = std::max(ticks.least, interrupts);
  if (waited.known() && waited.value <= ticks.most) {
    account.other_work_seconds.value = std::max(ticks.least, interrupts + waited.value);
  }
  return account;
}

}  // namespace velmo
