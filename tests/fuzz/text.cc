// CPU lists, sizes and numbers from any text.

#include "app/text.h"

#include <algorithm>
#include <climits>
#include <optional>

#include "fuzz/harness.h"

using velmo_fuzz::Require;

static void CheckList(const std::string& text) {
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
}

// What `convert` makes of `text`; nothing when it exits or throws.
template <typename T>
static std::optional<T> Value(T (*convert)(const std::string&), const std::string& text) {
  std::optional<T> value;
  velmo_fuzz::Run([&] { value = convert(text); });
  return value;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  const auto end = velmo_fuzz::Run([&text] { CheckList(text); });
  Require(end != velmo_fuzz::End::kNotConverted, "a list throws nothing");
  const auto number = Value(velmo::to_long, text);
  const bool fits = number && *number >= INT_MIN && *number <= INT_MAX;
  const auto small = Value(velmo::to_int, text);
  Require(small.has_value() == fits && (!fits || *small == *number), "int is a long that fits");
  const auto bytes = Value(velmo::get_bytes, text);
  if (!bytes) return 0;
  const size_t unit = std::string("kKmMgG").find(text.back());
  const bool plain = unit == std::string::npos;
  const auto count = Value(velmo::to_long, plain ? text : text.substr(0, size - 1));
  const __int128 scale = __int128{1} << (plain ? 0 : unit / 2 * 10 + 10);
  Require(count && *bytes == *count * scale, "a size is its number times its unit");
  return 0;
}
