#include "survey/commit.h"

namespace velmo {

std::string velmo_commit() { return VELMO_COMMIT; }

}  // namespace velmo
