// Which velmo this is.

#pragma once

namespace velmo {

inline constexpr char kVersion[] = VELMO_VERSION;  // from the build

}  // namespace velmo
