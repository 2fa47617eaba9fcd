// velmo survey: measures the machine and keeps what it found.

#pragma once

namespace velmo {

// `argv[0]` is the word. Returns the exit status: 0; 1 where nothing could be measured or the file
// could not be written; 3 with --strict where a cell is disturbed or failed; 128 and the signal's
// number after an end signal.
int run_survey(int argc, char** argv);

}  // namespace velmo
