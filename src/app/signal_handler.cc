#include "app/signal_handler.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "app/console.h"
#include "app/system.h"
#include "platform/prefetch.h"

namespace velmo {
namespace {

// How long the handler may take before the process ends without it, in seconds.
constexpr unsigned kHandlerLimit = 1;

void leave_now(int /*signum*/) { _exit(EXIT_SUCCESS); }

void restore_register() {
  if (!rollback_msr()) warn_from_handler("Failed to rollback msr.\n");
}

// Restores the register and lets the signal end the process as it does by default.
void restore_and_die(int signum) {
  restore_register();
  std::signal(signum, SIG_DFL);
  std::raise(signum);
}

void restore_on(int signum) {
  struct sigaction action {};
  action.sa_handler = restore_and_die;
  action.sa_flags = SA_ONSTACK;
  struct sigaction previous {};
  sigaction(signum, &action, &previous);
  // A signal that the parent had ignored (nohup) stays ignored.
  if (previous.sa_handler == SIG_IGN) sigaction(signum, &previous, nullptr);
}

[[noreturn]] void report_uncaught() {
  try {
    if (const std::exception_ptr uncaught = std::current_exception()) {
      std::rethrow_exception(uncaught);
    }
  } catch (const std::exception& e) {
    std::cerr << kErrorPrefix << e.what() << '\n';
  } catch (...) {
    std::cerr << kErrorPrefix << "Unknown exception\n";
  }
  // The message says what was wrong; a core file in the user's directory would say no more.
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  std::abort();  // restores the register on the way out
}

}  // namespace

void signal_handler(int signum) {
  std::signal(SIGALRM, leave_now);
  alarm(kHandlerLimit);
  const EndSignalsBlocked blocked;
  erase_line_from_handler();
  restore_register();
  if (signum == SIGQUIT) kill(getpid(), SIGQUIT);
  _exit(EXIT_SUCCESS);
}

void install_signal_handlers() {
  for (const int signum : kEndSignals) std::signal(signum, signal_handler);
}

void install_exit_guards() {
  std::atexit(restore_register);
  std::set_terminate(report_uncaught);
  // A stack that overflowed has no room for a handler. This is for the main thread; the others do
  // not recurse.
  static char handler_stack[64 * 1024];
  stack_t stack{};
  stack.ss_sp = handler_stack;
  stack.ss_size = sizeof handler_stack;
  sigaltstack(&stack, nullptr);
  for (const int signum :
       {SIGHUP, SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGSYS, SIGXCPU, SIGXFSZ,
        SIGALRM, SIGVTALRM, SIGPROF, SIGUSR1, SIGUSR2, SIGIO, SIGPWR, SIGSTKFLT}) {
    restore_on(signum);
  }
  for (int signum = SIGRTMIN; signum <= SIGRTMAX; ++signum) restore_on(signum);
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace velmo
