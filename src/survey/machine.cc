#include "survey/machine.h"

#include <cpuid.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "app/text.h"
#include "platform/cgroup.h"
#include "platform/prefetch.h"
#include "platform/text_file.h"
#include "survey/machine_parts.h"

namespace velmo {
namespace {

// Signatures that hypervisors give at leaf 0x40000000.
constexpr struct {
  std::string_view signature;
  const char* name;
} kHypervisors[] = {
    {"KVMKVMKVM", "KVM"},           {"Linux KVM Hv", "KVM"},   {"Microsoft Hv", "Hyper-V"},
    {"VMwareVMware", "VMware"},     {"XenVMMXenVMM", "Xen"},   {"TCGTCGTCGTCG", "QEMU"},
    {"VBoxVBoxVBox", "VirtualBox"}, {"bhyve bhyve ", "bhyve"}, {"ACRNACRNACRN", "ACRN"},
};

// What virtual machines call themselves in the tables of their firmware.
constexpr const char* kVirtualProducts[] = {
    "KVM", "QEMU", "VMware", "VirtualBox", "Virtual Machine", "HVM domU", "BHYVE", "Bochs"};

// The hypervisor by what the processor says; a guest that is not told may see it elsewhere.
Json hypervisor(const MachineSources& from) {
  constexpr uint32_t kGuest = 1U << 31;  // leaf 1, ECX
  if ((from.cpuid(1).ecx & kGuest) != 0) {
    const CpuInfo::Cpuid id = from.cpuid(0x40000000);
    const uint32_t registers[] = {id.ebx, id.ecx, id.edx};
    char bytes[sizeof registers + 1] = {};
    std::memcpy(bytes, registers, sizeof registers);
    const std::string signature = bytes;  // those below twelve characters end with zero bytes
    for (const auto& known : kHypervisors) {
      if (signature == known.signature) return known.name;
    }
    return signature.empty() ? "unknown" : signature;
  }
  if (Json type = text_of(from.root + "/sys/hypervisor/type"); type.is_string()) return type;
  for (const char* name : {"product_name", "sys_vendor"}) {
    const Json text = text_of(from.root + "/sys/class/dmi/id/" + name);
    if (!text.is_string()) continue;
    for (const char* product : kVirtualProducts) {
      if (text.get<std::string>().find(product) != std::string::npos) return product;
    }
  }
  return "none";
}

// The strictest limit of the groups in `folders`: `limit_of` gives that of one folder, negative
// where it has none. Without any: "none".
template <typename Number, typename LimitOf>
Json strictest(const std::vector<std::string>& folders, const char* controller, LimitOf limit_of) {
  if (folders.empty()) return unknown(std::string("no cgroup controller ") + controller);
  Number least = -1;
  for (const std::string& folder : folders) {
    const Number limit = limit_of(folder);
    if (limit >= 0 && (least < 0 || limit < least)) least = limit;
  }
  return least < 0 ? Json("none") : Json(least);
}

// The list that holds: that of the nearest group which has one, under either version's name.
Json cpuset(const std::vector<std::string>& folders, const std::string& version_2,
            const std::string& version_1) {
  for (const std::string& folder : folders) {
    for (const std::string& file : {version_2, version_1}) {
      if (const std::string list = first_line(folder + file); !list.empty()) return list;
    }
  }
  return unknown("no cgroup controller cpuset");
}

Json limits(const std::string& root) {
  const std::vector<std::string> sets = cgroup_folders("cpuset", root);
  return {
      {"cpuset_cpus", cpuset(sets, "/cpuset.cpus.effective", "/cpuset.effective_cpus")},
      {"cpuset_mems", cpuset(sets, "/cpuset.mems.effective", "/cpuset.effective_mems")},
      {"cpu_quota", strictest<double>(cgroup_folders("cpu", root), "cpu", cpu_quota)},
      {"memory_bytes", strictest<int64_t>(cgroup_folders("memory", root), "memory", memory_limit)}};
}

std::string failure_of(const std::string& path) { return path + ": " + std::strerror(errno); }

}  // namespace

MachineSources::MachineSources()
    : msr(MSR_PATH), cpuid([](uint32_t leaf) {
        CpuInfo::Cpuid id{};
        __cpuid(leaf, id.eax, id.ebx, id.ecx, id.edx);
        return id;
      }) {
  const char* path = std::getenv("PATH");
  search_path = std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin";
}

Json unknown(const std::string& reason) { return {{"value", nullptr}, {"reason", reason}}; }

Json text_of(const std::string& path) {
  std::string text;
  if (!read_text(path, text)) return unknown(failure_of(path));
  const size_t last = text.find_last_not_of(std::string_view("\n \0", 3));
  if (last == std::string::npos) return unknown(path + " is empty");
  return text.substr(0, last + 1);
}

Json number_of(const std::string& path, int64_t scale) {
  Json text = text_of(path);
  if (!text.is_string()) return text;
  const std::optional<long> number = leading_number(text.get<std::string>());
  int64_t value = 0;
  if (!number || __builtin_mul_overflow(*number, scale, &value)) {
    return unknown(path + " holds no number: " + text.get<std::string>());
  }
  return value;
}

std::vector<int> list_of(const std::string& path) {
  std::string text;
  std::vector<int> list;
  if (read_first_line(path, text) && !parse_list(text, list).empty()) list.clear();
  return list;
}

std::vector<std::string> names_in(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end;
       at.increment(error)) {
    names.push_back(at->path().filename());
  }
  std::ranges::sort(names);
  return names;
}

Json describe_machine(const MachineSources& from) {
  const std::string kernel = from.root + "/proc/sys/kernel/";
  const std::string dmi = from.root + "/sys/class/dmi/id/";
  Json machine = {
      {"host", text_of(kernel + "hostname")},
      {"kernel",
       {{"release", text_of(kernel + "osrelease")},
        {"version", text_of(kernel + "version")},
        {"command_line", text_of(from.root + "/proc/cmdline")}}},
      {"hypervisor", hypervisor(from)},
      {"system",
       {{"vendor", text_of(dmi + "sys_vendor")}, {"product", text_of(dmi + "product_name")}}},
      {"firmware",
       {{"vendor", text_of(dmi + "bios_vendor")},
        {"version", text_of(dmi + "bios_version")},
        {"date", text_of(dmi + "bios_date")}}}};
  describe_cpus(machine, from);
  describe_memory(machine, from);
  machine["limits"] = limits(from.root);
  return machine;
}

}  // namespace velmo
