// velmo fleet: names the slow machines among many that should be equal.

#pragma once

namespace velmo {

// `argv[0]` is the word. Returns the exit status: 3 where there are slow hosts.
int run_fleet(int argc, char** argv);

}  // namespace velmo
