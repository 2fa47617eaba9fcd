#include "platform/disturbances.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace velmo {
namespace {

constexpr size_t kMostLines = 3;

}  // namespace

StretchObserver Disturbances::Observer(std::vector<int> helper_cpus) {
  helper_cpus_ = std::move(helper_cpus);
  if (!watch_) watch_.emplace();
  return {[this](const std::vector<WatchedThread>& threads) {
            watch_->Start({.threads = threads, .helper_cpus = helper_cpus_, .nodes = {}});
          },
          [this] { Add(watch_->Stop()); }};
}

void Disturbances::Add(const WatchRecord& record) {
  ++measurements_;
  for (const BrokenRule& rule : broken_rules(record)) Count({rule, 1});
}

void Disturbances::Add(const Disturbances& other) {
  measurements_ += other.measurements_;
  for (const Broken& broken : other.broken_) Count(broken);
}

void Disturbances::Count(const Broken& broken) {
  const auto known = std::ranges::find_if(
      broken_, [&](const Broken& b) { return b.worst.rule == broken.worst.rule; });
  if (known == broken_.end()) {
    broken_.push_back(broken);
    return;
  }
  known->times += broken.times;
  if (broken.worst.value > known->worst.value) known->worst = broken.worst;
}

std::vector<std::string> Disturbances::Lines() const {
  std::vector<Broken> most = broken_;
  std::ranges::stable_sort(most, std::ranges::greater(), &Broken::times);
  most.resize(std::min(most.size(), kMostLines));
  std::vector<std::string> lines;
  for (const Broken& broken : most) {
    std::ostringstream line;
    line.precision(3);
    line << "Disturbed by " << broken.worst.rule << " (" << broken.times << " of " << measurements_
         << (measurements_ == 1 ? " measurement" : " measurements") << ", up to "
         << broken.worst.value << (broken.worst.unit.empty() ? "" : " ") << broken.worst.unit
         << "): " << rule_advice(broken.worst.rule);
    lines.push_back(line.str());
  }
  return lines;
}

}  // namespace velmo
