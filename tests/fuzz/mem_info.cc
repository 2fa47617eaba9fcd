// The SRAT and boot-log readers: the input is a boot log, a zero byte and a table. Subtables of the
// seeds, as type/length byte: whole 0/16 1/40 1/40 2/24 3/18 4/12 5/32; lengths 1/200 6/9 1/0
// 255/255 1/40; base0 1/40 (address 0) 1/40; cut 1/40 and half of another; stop 1/40 6/0 1/40.

#include "platform/mem_info.h"

#include <algorithm>

#include "fuzz/harness.h"
#include "support/fake_machine.h"

using velmo::MemInfo;
using velmo_fuzz::Require;
using velmo_test::LittleEndian;

static MemInfo Parse(const std::string& log, const std::string& table) {
  velmo_fuzz::WriteFile(100, table);
  velmo_fuzz::WriteFile(101, log);
  MemInfo info;
  info.srat_path = "/proc/self/fd/100";
  info.dmesg_path = "/proc/self/fd/101";
  info.Parse();
  info.PrintInfo();
  return info;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string log(data, std::find(data, data + size, 0));
  const std::string table(data + std::min(log.size() + 1, size), data + size);
  const auto end = velmo_fuzz::Run([&] {
    const MemInfo info = Parse(log, table);
    const MemInfo half =
        Parse(log + "\n[ 0.1] ACPI: SRAT: Node 5 PXM 0\n", table.substr(0, table.size() / 2));
    Require(!half.parsed || half.pxm_to_node[0] == 5, "the last line for a domain counts");
    Require(info.pxm_to_node.size() <= 65536, "domains are bounded");
    Require(half.mem_list.size() <= info.mem_list.size(), "a cut table has no more ranges");
    size_t at = MemInfo::header_length;
    for (size_t i = 0; i < info.mem_list.size(); ++i) {
      const MemInfo::mem_list_elem& range = info.mem_list[i];
      at = table.find(LittleEndian(range.base_address, 8) + LittleEndian(range.length, 8), at);
      Require(at++ != table.npos && range.base_address != 0, "ranges are the table's, in order");
      const auto domain = static_cast<size_t>(range.proximity_domain);
      const bool known = domain < info.pxm_to_node.size();
      Require(range.logical_node == (known ? info.pxm_to_node[domain] : -1), "the domain's node");
      Require(i >= half.mem_list.size() || half.mem_list[i].length == range.length,
              "a cut table keeps the ranges before the cut");
    }
  });
  Require(end == velmo_fuzz::End::kReturned, "damaged files do not end velmo");
  return 0;
}
