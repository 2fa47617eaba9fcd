#include "app/system.h"

#include <gtest/gtest.h>

namespace velmo {
namespace {

TEST(System, WritesListsAsRanges) {
  EXPECT_EQ(vector_to_str_range({1, 2, 3, 5, 7, 8}, 0), "1-3,5,7-8");
}

}  // namespace
}  // namespace velmo
