#include "survey/repeats.h"

#include <string>

namespace velmo {

std::vector<const Repeat*> counted_repeats(const std::vector<Repeat>& repeats) {
  std::vector<const Repeat*> all;
  std::vector<const Repeat*> clean;
  for (const Repeat& repeat : repeats) {
    if (repeat.failed()) continue;
    all.push_back(&repeat);
    if (repeat.disturbed_by.empty()) clean.push_back(&repeat);
  }
  return clean.size() * 2 < all.size() ? all : clean;
}

std::vector<double> counted_values(const std::vector<Repeat>& repeats, std::string_view name) {
  std::vector<double> values;
  const std::string key(name);
  for (const Repeat* repeat : counted_repeats(repeats)) {
    const auto found = repeat->figures.find(key);
    if (found != repeat->figures.end()) values.push_back(found->second);
  }
  return values;
}

}  // namespace velmo
