// velmo compare: two surveys, or two directories of surveys, against each other.

#pragma once

namespace velmo {

// `argv[0]` is the word. Returns the exit status: 3 where --fail-on is met.
int run_compare(int argc, char** argv);

}  // namespace velmo
