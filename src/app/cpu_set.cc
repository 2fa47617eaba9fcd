#include "app/cpu_set.h"

#include <pthread.h>
#include <sched.h>

#include <bit>

namespace velmo {

std::optional<CpuSet> CpuSet::OfCaller() {
  CpuSet set;
  auto* words = reinterpret_cast<cpu_set_t*>(set.words_.data());
  if (sched_getaffinity(0, sizeof set.words_, words) < 0) return std::nullopt;
  return set;
}

CpuSet CpuSet::All() {
  CpuSet set;
  set.words_.fill(~Word{0});
  return set;
}

CpuSet CpuSet::Only(unsigned int cpu) {
  CpuSet set;
  if (cpu < kCpus) set.words_[cpu / kBits] = Word{1} << cpu % kBits;
  return set;
}

bool CpuSet::Has(unsigned int cpu) const {
  return cpu < kCpus && (words_[cpu / kBits] >> cpu % kBits & 1) != 0;
}

void CpuSet::Remove(unsigned int cpu) {
  if (cpu < kCpus) words_[cpu / kBits] &= ~(Word{1} << cpu % kBits);
}

int CpuSet::Count() const {
  int count = 0;
  for (const Word word : words_) count += std::popcount(word);
  return count;
}

bool CpuSet::ConfineCaller() const {
  return sched_setaffinity(0, sizeof words_, reinterpret_cast<const cpu_set_t*>(words_.data())) ==
         0;
}

bool CpuSet::Confine(std::thread& thread) const {
  return pthread_setaffinity_np(thread.native_handle(), sizeof words_,
                                reinterpret_cast<const cpu_set_t*>(words_.data())) == 0;
}

}  // namespace velmo
