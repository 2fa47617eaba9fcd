#include "platform/memory_modules.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "support/subprocess.h"

namespace velmo {
namespace {

using Modules = std::vector<std::string>;

Modules Texts(const std::vector<MemoryModule>& modules) {
  Modules texts;
  for (const MemoryModule& m : modules) {
    texts.push_back(m.locator + ' ' + std::to_string(m.size_bytes >> 20) + ' ' + m.type + ' ' +
                    std::to_string(m.speed_mt_s) + ' ' + std::to_string(m.configured_speed_mt_s));
  }
  return texts;
}

// A type 17 structure of SMBIOS 3.3 in the slot "A1".
std::string Device(uint16_t size, uint32_t extended_size, uint16_t speed, uint8_t length = 0x5C) {
  std::string fields(0x5C, '\0');
  const auto set = [&fields](size_t at, auto value) {
    std::memcpy(&fields[at], &value, sizeof value);
  };
  set(0, uint8_t{17});
  set(1, length);
  set(0x0C, size);
  set(0x10, uint8_t{2});
  set(0x12, uint8_t{0x22});
  set(0x15, speed);
  set(0x1C, extended_size);
  set(0x20, uint16_t{4400});
  set(0x54, uint32_t{70000});
  return fields.substr(0, length) + std::string("P0\0A1\0\0", 7);
}

TEST(MemoryModules, AreThoseOfTheFirmware) {
  const std::string other("\1\4\0\0\0\0", 6);  // without fields and strings
  const std::string table = other + Device(0x7FFF, 65536, 4800) + Device(0, 0, 0) +
                            Device(0x8400, 0, 0xFFFF) + Device(512, 0, 800, 0x1B);
  const Modules all = {"A1 65536 DDR5 4800 4400", "A1 1 DDR5 70000 4400", "A1 512 DDR5 800 0"};
  EXPECT_EQ(Texts(parse_smbios(table)), all);
  for (size_t cut = 0; cut < table.size(); ++cut) {  // never reads behind the end
    const Modules some = Texts(parse_smbios(table.substr(0, cut)));
    EXPECT_TRUE(some.size() <= all.size() && std::equal(some.begin(), some.end(), all.begin()));
  }
  EXPECT_EQ(Texts(parse_dmidecode(
                "# x\nMemory Device\n\tSize: 16 GB\n\tLocator: A\n\tBank Locator: B\n\tType: DDR4\n"
                "\tSpeed: 3200 MT/s\n\tConfigured Clock Speed: 2933 MT/s\n\nMemory Device\n"
                "\tSize: No Module Installed\n\tType: Unknown\n\nMemory Device\n\tSize: 512 MB\n"
                "\tType: Unknown\n\tSpeed: Unknown\n\nMemory Array\n\tLocator: X\n")),
            (Modules{"A 16384 DDR4 3200 2933", " 512  0 0"}));
}

TEST(MemoryModules, ComeFromAToolThatMayFailOrHang) {
  const std::pair<const char*, const char*> rows[] = {
      // the tool, and what is said of it
      {"#!/bin/sh\n[ \"$*\" = '-t 17' ] && printf 'Memory Device\\n\\tSize: 1 MB\\n'\n", ""},
      {"#!/bin/sh\nexit 3\n", "ended with status 3"},
      {"#!/bin/sh\nkill -9 $$\n", "was ended by signal 9"},
      {"#!/bin/sh\nexec >&-\nexec sleep 60\n", "took longer than 2000 ms"},
      {"#!/bin/sh\n", "names no module"}};
  for (const auto& [script, reason] : rows) {
    const velmo_test::TempDir dir;
    chmod(dir.Write("dmidecode", script).c_str(), 0755);
    const MemoryModules modules = read_memory_modules("relative::" + dir.path(), dir.path());
    EXPECT_EQ(modules.list.size(), *reason == 0 ? 1 : 0);
    EXPECT_EQ(modules.reason.empty(), *reason == 0);
    EXPECT_NE(modules.reason.find(reason), std::string::npos) << modules.reason;
  }
}

}  // namespace
}  // namespace velmo
