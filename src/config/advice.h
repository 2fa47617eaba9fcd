// What a user is told before a run measures.

#pragma once

#include "config/configurator.h"
#include "platform/spoilers.h"

namespace velmo {

// The CPUs and memory nodes that the accepted options will have measured.
Subjects under_test(const Configurator& config);

// Warns of what may spoil the numbers of the run, where standard error is a terminal.
void tell_spoilers(const Configurator& config);

}  // namespace velmo
