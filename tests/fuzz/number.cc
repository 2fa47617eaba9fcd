// Sizes and numbers from any text.

#include <climits>
#include <optional>

#include "app/text.h"
#include "fuzz/harness.h"

using velmo_fuzz::Require;

// What `convert` makes of `text`; nothing when it exits or throws.
template <typename T>
static std::optional<T> Value(T (*convert)(const std::string&), const std::string& text) {
  std::optional<T> value;
  velmo_fuzz::Run([&] { value = convert(text); });
  return value;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  const auto number = Value(velmo::to_long, text);
  const bool fits = number && *number >= INT_MIN && *number <= INT_MAX;
  const auto small = Value(velmo::to_int, text);
  Require(small.has_value() == fits && (!fits || *small == *number), "int is a long that fits");
  const auto natural = Value(velmo::to_unsigned, text);
  Require(!number || natural == static_cast<unsigned long long>(*number), "unsigned is a long");

  const auto bytes = Value(velmo::get_bytes, text);
  if (!bytes) return 0;
  const size_t unit = std::string("kKmMgG").find(text.back());
  const bool plain = unit == std::string::npos;
  const auto count = Value(velmo::to_long, plain ? text : text.substr(0, size - 1));
  const __int128 scale = __int128{1} << (plain ? 0 : unit / 2 * 10 + 10);
  Require(count && *bytes == *count * scale, "a size is its number times its unit");
  return 0;
}
