// What the words of the command line (survey, show, report, compare, fleet, export) have in common:
// how their options are parsed, and how their files are written.

#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace velmo {

// Parses the arguments behind a word. `--help` prints the page of `app` and ends the program with
// status 0; whatever does not parse ends it with status 1 behind the error prefix.
void parse_word(CLI::App& app, int argc, char** argv);

}  // namespace velmo
