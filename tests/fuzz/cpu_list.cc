// CPU lists from any text, and back.

#include <algorithm>

#include "app/text.h"
#include "fuzz/harness.h"

using velmo_fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  const auto end = velmo_fuzz::Run([&text] {
    const std::vector<int> list = velmo::str_range_to_vector(text);
    Require(list.empty() || list.front() >= 0, "no number is negative");
    Require(list.size() <= 65536, "the length is bounded");
    Require(std::is_sorted(list.begin(), list.end(), std::less_equal<>()), "rising");
    std::string apart = text;
    for (char& c : apart) c = c == '-' || c == ',' ? ' ' : c;
    std::istringstream numbers(apart);
    for (int number = 0; numbers >> number;) {
      Require(std::binary_search(list.begin(), list.end(), number), "no number is passed over");
    }
    const auto half = static_cast<int>(list.size() / 2);
    const std::string shown = velmo::vector_to_str_range(list, half);
    Require(velmo::str_range_to_vector(shown) == std::vector(list.begin() + half, list.end()),
            "what is shown reads as the same list");
  });
  Require(end != velmo_fuzz::End::kNotConverted, "a list throws nothing");
  return 0;
}
