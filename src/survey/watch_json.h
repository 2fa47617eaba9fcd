// What happened during a repeat (platform/watch.h) as a survey records it.

#pragma once

#include <optional>

#include "platform/watch.h"
#include "platform/watch_rules.h"
#include "survey/record.h"

namespace velmo {

// The member "watch" of a repeat. A figure that is not known is {"value": null, "reason": "..."}.
Json watch_json(const WatchRecord& record);

// The clock in the member "watch" of an earlier repeat; none where it is not known.
std::optional<ClockReference> clock_of(const Json& watch);

// Records in `repeat` what happened, and the rules that it broke.
void put_watch(Repeat& repeat, const WatchRecord& record,
               const std::optional<ClockReference>& first);

}  // namespace velmo
