// velmo export: surveys in the formats of other programs.

#pragma once

namespace velmo {

// `argv[0]` is the word. Returns the exit status.
int run_export(int argc, char** argv);

}  // namespace velmo
