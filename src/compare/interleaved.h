// Surveys of two settings of one machine, taken in turn, so that what drifts meanwhile falls on
// both alike.

#pragma once

#include <ostream>
#include <string>

namespace velmo {

struct Interleaved {
  std::string program;      // whose word `survey` is run
  std::string options;      // of the survey, as a shell reads them
  std::string commands[2];  // of a shell, that switch to the old and to the new setting
  int rounds = 2;           // of four surveys: old, new, new, old; 1 and up
  std::string directory;    // gets a folder "old" and a folder "new" with the surveys

  std::string folder(int side) const { return directory + (side == 0 ? "/old" : "/new"); }
};

// Takes the surveys, each after its side's command, and tells each on `progress`. What the commands
// print goes to standard error. Throws std::runtime_error where the directory exists or cannot be
// made, or a command or a survey fails or is interrupted: which one, how it ended, and where the
// surveys are that were taken before.
void survey_interleaved(const Interleaved& plan, std::ostream& progress);

}  // namespace velmo
