// Sets of CPUs, of as many as the kernel can have: those of the C library end at 1,024.

#pragma once

#include <array>
#include <optional>
#include <thread>

namespace velmo {

class CpuSet {
 public:
  // CPUs of the largest kernel for x86-64 (CONFIG_NR_CPUS).
  static constexpr int kCpus = 8192;

  // The CPUs that the calling thread may run on; none when the kernel does not tell.
  static std::optional<CpuSet> OfCaller();

  // Every CPU, also those that the machine does not have.
  static CpuSet All();

  // The one CPU `cpu`; empty, which the kernel refuses, when it lies beyond kCpus.
  static CpuSet Only(unsigned int cpu);

  bool Has(unsigned int cpu) const;
  void Remove(unsigned int cpu);
  int Count() const;
  bool operator==(const CpuSet&) const = default;

  // Confines the calling thread, or `thread`, to the CPUs of the set that there are. False when the
  // kernel refuses.
  bool ConfineCaller() const;
  bool Confine(std::thread& thread) const;

 private:
  using Word = unsigned long;  // as the kernel has it
  static constexpr unsigned int kBits = 8 * sizeof(Word);

  std::array<Word, kCpus / kBits> words_{};
};

}  // namespace velmo
