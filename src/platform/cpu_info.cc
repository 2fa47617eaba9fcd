#include "platform/cpu_info.h"

#include <cpuid.h>

#include <cstring>
#include <string_view>

namespace velmo {

void CpuInfo::GetCpuid(int leaf, Cpuid& out) { __cpuid(leaf, out.eax, out.ebx, out.ecx, out.edx); }

void CpuInfo::GetCpuInfo() {
  Cpuid id;
  GetCpuid(0, id);
  char name[12];
  std::memcpy(name, &id.ebx, 4);
  std::memcpy(name + 4, &id.edx, 4);
  std::memcpy(name + 8, &id.ecx, 4);
  const std::string_view vendor_name(name, sizeof name);
  if (vendor_name == "GenuineIntel") {
    vendor = kIntel;
  } else if (vendor_name == "AuthenticAMD") {
    vendor = kAmd;
  }

  GetCpuid(1, id);
  model = static_cast<int32_t>(((id.eax >> 12) & 0xF0) | ((id.eax >> 4) & 0x0F));
  stepping = static_cast<int32_t>(id.eax & 0x0F);
}

// Sapphire/Emerald Rapids up to this stepping measure without spinning threads.
bool CpuInfo::WantsAwakeNodes() const {
  constexpr int32_t kModelWithout = 0xCF;
  return model != kModelWithout || stepping > 2;
}

}  // namespace velmo
