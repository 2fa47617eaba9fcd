#include "platform/prefetchers_off.h"

#include "app/console.h"

namespace velmo {

PrefetchersOff::~PrefetchersOff() {
  if (!rollback_msr()) Warn() << "Failed to rollback msr.\n";
}

}  // namespace velmo
