#include "fleet/host.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace velmo {

const std::string TextPool::kEmpty;

bool is_bandwidth(FigureClass figure_class) {
  return figure_class == FigureClass::kBandwidth || figure_class == FigureClass::kLoadedPeak;
}

std::string_view figure_id(FigureClass figure_class) {
  constexpr std::string_view kIds[kFigureClasses] = {"average_ns",
                                                     "p99_ns",
                                                     "p99_9_ns",
                                                     "bytes_per_second",
                                                     "average_ns_at_half_of_peak",
                                                     "average_ns_at_nine_tenths_of_peak",
                                                     "bytes_per_second_at_peak"};
  return kIds[static_cast<int>(figure_class)];
}

uint32_t TextPool::number(std::string_view text) {
  if (text.empty()) return 0;
  const std::lock_guard lock(mutex_);
  const auto [found, is_new] =
      numbers_.try_emplace(std::string(text), static_cast<uint32_t>(texts_.size()));
  if (is_new) texts_.push_back(&found->first);
  return found->second;
}

uint32_t FigureNames::number(const FigureName& name) {
  const std::lock_guard lock(mutex_);
  const auto [found, is_new] = numbers_.try_emplace(
      name.cell + ' ' + name.pages + ' ' + std::string(figure_id(name.figure_class)),
      static_cast<uint32_t>(names_.size()), name);
  if (is_new) names_.push_back(&found->second.second);
  return found->second.first;
}

std::vector<uint32_t> FigureNames::sort() {
  std::vector<uint32_t> order(names_.size());
  std::iota(order.begin(), order.end(), 0);
  const auto key = [this](uint32_t i) {
    return std::tie(names_[i]->figure_class, names_[i]->label, names_[i]->cell, names_[i]->pages);
  };
  std::sort(order.begin(), order.end(), [&key](uint32_t a, uint32_t b) { return key(a) < key(b); });
  std::vector<uint32_t> renumbered(order.size());
  for (uint32_t i = 0; i < order.size(); ++i) renumbered[order[i]] = i;
  for (auto& [key_text, entry] : numbers_) entry.first = renumbered[entry.first];
  for (auto& [key_text, entry] : numbers_) names_[entry.first] = &entry.second;
  return renumbered;
}

}  // namespace velmo
