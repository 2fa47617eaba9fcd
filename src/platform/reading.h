// A figure of the machine that may not be known, and then says why.

#pragma once

#include <algorithm>
#include <string>

namespace velmo {

struct Reading {
  double value = 0;
  std::string reason = {};  // why the value is not known; empty: it is

  bool known() const { return reason.empty(); }
};

// What a counter rose by between two readings, times `scale`.
inline Reading risen(const Reading& before, const Reading& after, double scale = 1) {
  if (!before.known()) return before;
  if (!after.known()) return after;
  if (after.value < before.value) return {0, "the counter went back"};
  return {(after.value - before.value) * scale};
}

// `a` and `b` combined by `operation`, known where both are.
template <typename Operation>
Reading combine(const Reading& a, const Reading& b, Operation operation) {
  if (!a.known()) return a;
  if (!b.known()) return b;
  return {operation(a.value, b.value)};
}

inline Reading sum_of(const Reading& a, const Reading& b) {
  return combine(a, b, [](double x, double y) { return x + y; });
}

inline Reading larger_of(const Reading& a, const Reading& b) {
  return combine(a, b, [](double x, double y) { return std::max(x, y); });
}

}  // namespace velmo
