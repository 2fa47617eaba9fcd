#include "app/text.h"

#include <gtest/gtest.h>

#include "support/subprocess.h"

namespace velmo_test {

using namespace velmo;  // NOLINT(google-build-using-namespace): free functions, all under test

TEST(Text, ReadsListsNumbersAndSizes) {
  EXPECT_EQ(str_range_to_vector("8,1-3, 2,11 -12,"), std::vector({1, 2, 3, 8, 11, 12}));
  EXPECT_TRUE(str_range_to_vector(" , ").empty());
  EXPECT_EQ(str_range_to_vector("0-65535").size(), 65536U);
  EXPECT_EQ(vector_to_str_range({1, 2, 3, 5, 7, 8}, 2), "3,5,7-8");

  for (const char* text : {"12", "-3", "+4", "abc", "1.5", "("}) EXPECT_TRUE(is_number(text));
  for (const char* text : {"", "1 2", "#", "~", "'"}) EXPECT_FALSE(is_number(text)) << text;
  EXPECT_EQ(get_bytes("2G") + get_bytes("3g"), int64_t{5} << 30);
  EXPECT_EQ(get_bytes("5m") + get_bytes("1M"), 6 << 20);
  EXPECT_EQ(get_bytes("7k") + get_bytes("1K") + get_bytes("64"), (8 << 10) + 64);
  EXPECT_EQ(get_bytes("8589934591g"), INT64_MAX - (1 << 30) + 1);
}

TEST(Text, EndsTheProgramOnBadInput) {
  const std::string range = "Invalid range value. Check range value: ";
  const std::pair<const char*, std::string> lists[] = {
      {"1;2", "Invalud range value: ;"},
      {"5-3", range + "5-3"},
      {"5-0", range + "5-0"},
      {"3-3", range + "3-3"},
      {"1-3-5", range + "5"},
      {"3-", range + "-"},
      {"0-2147483647", range + "0-2147483647"},
      {"0-65535,70000", range + "70000"},
  };
  for (const auto& [text, message] : lists) {
    EXPECT_EQ(RunForked([&] { str_range_to_vector(text); }), (Outcome{1, "", Error(message)}));
  }
  for (const std::string text : {"10T", "", "g", "8589934592g"}) {
    EXPECT_EQ(RunForked([&] { get_bytes(text); }),
              (Outcome{1, "", Error("Invalid memory size: " + text)}));
  }
}

}  // namespace velmo_test
