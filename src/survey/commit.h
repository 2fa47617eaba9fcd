// The source that velmo was built from.

#pragma once

#include <string>

namespace velmo {

// The git commit, in hexadecimal; empty where it was not built from a checkout.
std::string velmo_commit();

}  // namespace velmo
