#include "app/failure.h"

#include <cstdlib>
#include <mutex>

#include "app/console.h"

namespace velmo {

std::ostream& Warn() { return std::cerr << warning_prefix(); }

Fatal::Fatal() : out_(std::cerr) {
  static std::recursive_mutex first_failure;  // never released
  first_failure.lock();
  Error();
}

Fatal::~Fatal() { std::exit(EXIT_FAILURE); }

}  // namespace velmo
