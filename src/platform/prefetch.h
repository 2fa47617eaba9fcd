// The hardware prefetchers of one CPU, switched through its model-specific registers.
//
// The registers are reached through the kernel's msr driver, which needs root and the msr module.
// One register of one CPU may be changed at a time; its old value is kept here until
// rollback_msr() writes it back. The state is process-wide and guarded by no lock: the main thread
// changes it, and whatever ends the process early may restore it at any instant. A restore that is
// interrupted by another one is harmless: both write the same value.

#pragma once

#include <cstdint>

#include "platform/cpu_info.h"

namespace velmo {

// Per-CPU msr device; the file offset of a read or write is the register's address.
inline const char* MSR_PATH = "/dev/cpu/%d/msr";

// Chooses the register for `cpu`: IA32_MISC_ENABLE (0x1A0) for the Core 2 generation and
// MSR_MISC_FEATURE_CONTROL (0x1A4) for other Intel models (Intel SDM vol. 4), Prefetch Control
// (0xC0000108) for AMD (AMD PPR).
void find_offset(const CpuInfo& cpu);

// The register in use: its address, 0 where none is chosen, and the bits of its value that switch
// prefetchers off.
struct PrefetchRegister {
  uint64_t address;
  uint64_t off_bits;
};
PrefetchRegister prefetch_register();

// Saves the register of `cpu` and switches the prefetchers off. False, after a warning, when the
// register cannot be read or written, or another run has changed that of the same CPU; nothing is
// changed then. A register that is still changed is put back first.
bool disable_prefetch(int cpu);

// The two halves of it, for a process that another one is to outlive. The first saves the register
// and changes nothing; rollback_msr() puts back what the second, in this process or in one that is
// forked from it meanwhile, has changed.
bool save_prefetch(int cpu);
// False, after a warning, when the saved register cannot be written.
bool switch_saved_off();

// Writes the saved value back. True when it was written or the register holds it; false after a
// warning. Waits for no lock and allocates nothing (snprintf of a number does not, in
// glibc), so a signal handler may call it.
bool rollback_msr();

// The same, with one more warning where it fails: what has to happen before any end of a run.
void restore_msr();

// The prefetchers of one CPU, off for as long as an object lives.
class PrefetchersOff {
 public:
  // Switches the prefetchers of `cpu` off, where its registers can be reached (disable_prefetch).
  explicit PrefetchersOff(int cpu) : off_(disable_prefetch(cpu)) {}
  // Puts them back; a failure is a warning.
  ~PrefetchersOff() { restore_msr(); }
  PrefetchersOff(const PrefetchersOff&) = delete;
  PrefetchersOff& operator=(const PrefetchersOff&) = delete;

  bool off() const { return off_; }

 private:
  bool off_;
};

}  // namespace velmo
