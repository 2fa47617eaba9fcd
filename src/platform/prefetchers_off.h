// The prefetchers of one CPU, off for as long as an object lives.

#pragma once

#include "platform/prefetch.h"

namespace velmo {

class PrefetchersOff {
 public:
  // Switches the prefetchers of `cpu` off, where its registers can be reached (disable_prefetch).
  explicit PrefetchersOff(int cpu) : off_(disable_prefetch(cpu)) {}
  // Puts them back; a failure is a warning.
  ~PrefetchersOff();
  PrefetchersOff(const PrefetchersOff&) = delete;
  PrefetchersOff& operator=(const PrefetchersOff&) = delete;

  bool off() const { return off_; }

 private:
  bool off_;
};

}  // namespace velmo
