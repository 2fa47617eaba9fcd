// However a run ends early, what it has changed of the machine is put back first. What cannot be
// covered: SIGKILL, loss of power, a CPU that has gone offline, and two runs at a time on CPUs of
// one core.

#pragma once

namespace velmo {

// Handler of the four end signals: restores what was changed and ends the process with
// status 0, whatever its threads do at that moment. Never returns.
//
// It runs on the main thread (worker threads block the four signals), possibly in the middle of an
// allocation or of output, so it takes no lock and runs no destructor: standard output holds
// nothing that would have to be flushed (init_console), and no static object owns anything that
// outlives the process. SIGQUIT is sent to the process once more, as a parent that waits for it
// may expect; it stays blocked and cannot start a second handler. Should a write to a full pipe or
// the restoring block, an alarm ends the process one second later.
void signal_handler(int signum);

// Installs signal_handler for SIGTSTP, SIGINT, SIGTERM and SIGQUIT.
void install_signal_handlers();

// Has `restore_machine` (null: nothing is to be restored), which takes no lock and allocates
// nothing, called before any end, by the handlers of both functions here as by exit(). It may be
// called again while it runs.
//
// Covers the other ends: exit(), an uncaught exception (which is reported
// behind the error prefix before the abort), and the other signals that end a process by default,
// SIGHUP and the faults among them, which keep their effect after the restore. Where memory cannot
// be allocated the exit status is 1. A closed pipe does not end the run: its log may still be
// wanted. Nor does a file that grows beyond a limit (ulimit -f): who writes it reports that.
void install_exit_guards(void (*restore_machine)() = nullptr);

}  // namespace velmo
