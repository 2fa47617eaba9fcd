#include "bandwidth/load_kernels.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/disassemble.h"

namespace velmo {
namespace {

using velmo_test::AddressOf;
using velmo_test::Disassemble;
using OneBufferKernel = void (*)(void*&, unsigned int, unsigned int);

struct Row {
  OneBufferKernel one;  // one of these two
  Kernel two;
  int loaded;         // lines, for each of the four lines of a block
  std::string store;  // instruction; empty: none
  int step;           // bytes between accesses

  KernelShape shape() const {
    const Store kind = store == "movntdq" ? Store::kStreaming : Store::kCached;
    return {loaded, store.empty() ? Store::kNone : kind, step == 16};
  }
};

const Row kRows[] = {
    {r1, nullptr, 1, "", 16},           {r1w1, nullptr, 0, "movdqa", 16},
    {nullptr, r2w1, 1, "movdqa", 16},   {nullptr, r3w1, 2, "movdqa", 16},
    {w1n, nullptr, 0, "movntdq", 16},   {nullptr, r1w1n, 1, "movntdq", 16},
    {nullptr, r2w1n, 2, "movntdq", 16}, {nullptr, r3w1n, 3, "movntdq", 16},
    {r1p, nullptr, 1, "", 64},          {r1w1p, nullptr, 0, "movdqa", 64},
    {nullptr, r2w1p, 1, "movdqa", 64},  {nullptr, r3w1p, 2, "movdqa", 64},
};

// The loop of a kernel whose pointers are in `src` and `dst`: the accesses of a block, the
// advances, the spin and, between them, counters in registers.
std::string Loop(const Row& row, const std::string& src, const std::string& dst) {
  std::ostringstream form;
  form << std::hex;
  const auto access = [&](const std::string& op, const std::string& place, int begin, int end) {
    for (int at = begin; at < end; at += row.step) {
      form << (form.tellp() == 0 ? "(\\w+):" : "\\w+:") << op;
      if (at != 0) form << "0x" << at;
      form << place;
    }
  };
  for (int line = 0; line < 256; line += 64) {
    access("movdqa ", "\\(" + src + "\\),%xmm0;", line * row.loaded, (line + 64) * row.loaded);
    if (!row.store.empty()) access(row.store + " %xmm[01],", "\\(" + dst + "\\);", line, line + 64);
  }
  if (row.loaded != 0) form << "\\w+:add \\$0x" << 256 * row.loaded << ',' << src << ';';
  if (!row.store.empty()) form << "\\w+:add \\$0x100," << dst << ';';
  const char* count = R"((?:\w+:(?:mov|xor|add|sub|cmp|dec)l? (?:[%$]\w+,)?%\w+;){0,2})";
  form << count << R"((\w+):nop ;\w+:add \$0x1,(%\w+);\w+:cmp %\w+,\3;\w+:jl \2;)" << count
       << R"(\w+:jne \1;)";
  return form.str();
}

TEST(LoadKernels, AreTheInstructionsOfTheTable) {
  if (velmo_test::kAddsInstructions) GTEST_SKIP() << "of Release alone";
  for (const Row& row : kRows) {
    const uint64_t address = AddressOf(FindKernel(row.shape()));
    const std::string code = Disassemble(address);
    const auto base = [&code](const std::string& argument) {
      std::smatch match;
      const std::regex load(":mov \\(" + argument + "\\),(%\\w+);");
      return std::regex_search(code, match, load) ? match.str(1) : "not used";
    };
    const std::string loop = Loop(row, base("%rdi"), base("%rsi"));
    EXPECT_TRUE(std::regex_search(code, std::regex(loop))) << code << "\nhas not\n" << loop;

    const bool one = row.one != nullptr;
    const std::string named = Disassemble(one ? AddressOf(row.one) : AddressOf(row.two));
    std::ostringstream jump;  // a name with one buffer passes it on as both
    jump << '^' << (one ? R"((\w+:mov %\w+,%\w+;){3})" : "") << R"(\w+:jmp )" << std::hex << address
         << ';';
    EXPECT_TRUE(std::regex_search(named, std::regex(jump.str())))
        << named << " is not " << jump.str();
  }
}

}  // namespace
}  // namespace velmo
