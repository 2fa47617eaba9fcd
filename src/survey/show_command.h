// velmo show: prints the tables of a survey from its file.

#pragma once

namespace velmo {

// `argv[0]` is the word. Returns the exit status.
int run_show(int argc, char** argv);

}  // namespace velmo
