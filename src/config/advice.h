// What a user is told before a run measures, and behind it.

#pragma once

#include "config/configurator.h"
#include "platform/disturbances.h"
#include "platform/spoilers.h"

namespace velmo {

// The CPUs and memory nodes that the accepted options will have measured.
Subjects under_test(const Configurator& config);

// Warns of what may spoil the numbers of the run, where standard error is a terminal.
void tell_spoilers(const Configurator& config);

// Whether somebody reads what is told here: standard error is a terminal.
bool is_watched();

// Warns of what disturbed the measurements of the run, in three lines at most, where is_watched.
void tell_disturbances(const Disturbances& disturbances);

}  // namespace velmo
