// The instructions of functions of the running program.

#pragma once

#include <link.h>

#include <regex>
#include <string>

#include "support/subprocess.h"

namespace velmo_test {

// The other builds do not optimize, or add instructions of their own.
inline constexpr bool kAddsInstructions = VELMO_RELEASE == 0;

// Where a function begins in the program's file.
template <typename Function>
uint64_t AddressOf(Function* function) {
  return reinterpret_cast<uint64_t>(function) - _r_debug.r_map->l_addr;
}

// The function at `address` in the program's file: "address:name operands;" and so on.
inline std::string Disassemble(uint64_t address) {
  const std::string command =
      "objdump -d --no-show-raw-insn --start-address=" + std::to_string(address) +
      " --stop-address=" + std::to_string(address + 1024) + " /proc/$PPID/exe";
  const auto text = RunForked([&] { execlp("sh", "sh", "-c", command.c_str(), nullptr); }).out;
  static const std::regex line(R"( *(\w+):\t(\S+) *(\S*).*\n)");
  const size_t begin = text.find(">:\n") + 3;
  return std::regex_replace(text.substr(begin, text.find("\n\n", begin) + 1 - begin), line,
                            "$1:$2 $3;");
}

}  // namespace velmo_test
