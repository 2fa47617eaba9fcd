// Processor identification by the cpuid instruction.

#pragma once

#include <cstdint>

namespace velmo {

class CpuInfo {
 public:
  // Results of one cpuid.
  struct Cpuid {
    uint32_t eax, ebx, ecx, edx;
  };

  static constexpr int32_t kIntel = 1;
  static constexpr int32_t kAmd = 2;

  // kIntel for "GenuineIntel", kAmd for "AuthenticAMD" and for every other vendor string.
  int32_t vendor = kAmd;
  // Display model: (extended model << 4) | model, leaf 1 EAX bits 19..16 and 7..4. The family is
  // not looked at.
  int32_t model = 2;
  // Leaf 1 EAX bits 3..0.
  int32_t stepping = 0;

  // Executes cpuid with EAX = `leaf`; for leaves without subleaves (ECX is not chosen).
  void GetCpuid(int leaf, Cpuid& out);

  // Fills the three fields from leaves 0 and 1.
  void GetCpuInfo();

  // Whether one CPU of every node is to be kept awake while this processor measures.
  bool WantsAwakeNodes() const;
};

}  // namespace velmo
