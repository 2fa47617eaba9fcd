// How velmo talks to its user: four coloured message prefixes and the streams that they go to.
//
// Results, banners and help go to standard output without a prefix. Everything that is written to
// standard output is flushed at once (see init_console), so the order of the two streams on one
// terminal or pipe is the order in which the program wrote them, and a signal handler that leaves
// at any instant has nothing to flush.

#pragma once

#include <atomic>
#include <iostream>

#include "app/failure.h"

namespace velmo {

// ANSI escapes: bold, colour, label, reset. The classic command lines write them also when the
// stream is not a terminal.
inline constexpr char kInfoPrefix[] = "\033[1;32m[INFO] \033[0m";
inline constexpr char kWarningPrefix[] = "\033[1;33m[VELMO Warning] \033[0m";
inline constexpr char kErrorPrefix[] = "\033[1;31m[VELMO Error] \033[0m";
inline constexpr char kDebugPrefix[] = "\033[1;35m[DEBUG] \033[0m";

// Erases the line of a terminal on which the cursor stands.
inline constexpr char kEraseLine[] = "\r\033[K";

// The words' prefixes: without escapes where standard error is no terminal, or NO_COLOR is set
// (and not empty). Called before anything is written.
void choose_prefixes();

// The prefixes of warnings and of errors as chosen.
const char* warning_prefix();
const char* error_prefix();

// The rule that separates the blocks of a report: forty hyphens between two newlines.
inline constexpr char kSeparator[] = "\n----------------------------------------\n";

// Makes standard output flush after every operation, and sees to it that no file opened later takes
// the place of a standard stream that is closed. Called once, first in main.
void init_console();

// Standard output behind the information prefix.
std::ostream& Info();
// Standard output behind the debug prefix.
std::ostream& Debug();
// Standard error behind the error prefix, for who ends the program himself; see Fatal.
std::ostream& Error();

// Writes the warning prefix and `text` to standard error with bare system calls. Takes no lock and
// allocates nothing, so a signal handler may call it.
void warn_from_handler(const char* text);

// The terminal that shows a line to be erased before the program ends; -1: none does.
extern std::atomic<int> open_line;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

// Erases that line with bare system calls; leaves it where the terminal takes nothing (Ctrl-S).
void erase_line_from_handler();

// exit(1) with a message when something that was written to standard output is lost.
void check_output();

}  // namespace velmo
