#include "config/memory_report.h"

namespace velmo {

void write_memory_line(std::ostream& out, const Configurator& config, int target,
                       const char* base_label) {
  switch (config.mem_mode) {
    case kMemNuma:
      out << "mem-numa_id: ";
      if (config.no_memnode) {
        out << "none (follow the system allocation)";
      } else {
        out << config.memnode_list[target];
      }
      break;
    case kMemDevdax:
    case kMemPmem:
      out << "mem_path: " << config.path;
      break;
    case kMemPhysical:
      out << base_label << std::hex << config.base_addr[target] << std::dec;
      break;
    default:
      break;
  }
}

void write_size_lines(std::ostream& out, const Configurator& config, int64_t size, int stride) {
  out << "memory size: " << static_cast<double>(size) / kBytesPerMiB << " MiB\n"
      << "chunk size : " << config.chunk * 8 << " Byte\n"
      << "stride size: " << stride << " Byte\n";
}

}  // namespace velmo
