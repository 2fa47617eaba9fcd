#include "app/signal_handler.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <vector>

#include "app/console.h"
#include "app/threads.h"

namespace velmo {
namespace {

// How long the handler may take before the process ends without it, in seconds.
constexpr unsigned kHandlerLimit = 1;

// What install_exit_guards was given.
void (*restore)() = nullptr;

void leave_now(int /*signum*/) { _exit(EXIT_SUCCESS); }

pid_t thread_id(const char* name) {
  pid_t id = 0;
  for (; *name >= '0' && *name <= '9'; ++name) id = 10 * id + (*name - '0');
  return id;
}

// A process ends with its last thread, and a spinning thread of idle priority on a CPU that
// somebody else keeps busy waits for seconds until it may end. Bare system calls, for handlers.
void raise_idle_threads() {
  const int directory = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  alignas(dirent64) char entries[2048];
  ssize_t size = 0;
  while ((size = getdents64(directory, entries, sizeof entries)) > 0) {
    for (ssize_t at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
      const sched_param priority{};
      // 0, which "." and ".." come out as, is this thread.
      sched_setscheduler(thread_id(entry->d_name), SCHED_OTHER, &priority);
      at += entry->d_reclen;
    }
  }
  close(directory);
}

void prepare_end() {
  if (restore != nullptr) restore();
  raise_idle_threads();
}

// Restores what is to be restored and lets the signal end the process as it does by default.
void restore_and_die(int signum) {
  prepare_end();
  std::signal(signum, SIG_DFL);
  std::raise(signum);
}

void restore_on(int signum) {
  struct sigaction action {};
  action.sa_handler = restore_and_die;
  action.sa_flags = SA_ONSTACK;
  sigaction(signum, &action, nullptr);
}

// By the parent, as nohup does.
bool is_ignored(int signum) {
  struct sigaction action {};
  sigaction(signum, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

[[noreturn]] void report_uncaught() {
  try {
    if (const std::exception_ptr uncaught = std::current_exception()) {
      std::rethrow_exception(uncaught);
    }
  } catch (const std::bad_alloc&) {
    prepare_end();
    Error() << "Out of memory. Check the limit on memory (ulimit -v)\n";
    _exit(EXIT_FAILURE);
  } catch (const std::exception& e) {
    Error() << e.what() << '\n';
  } catch (...) {
    Error() << "Unknown exception\n";
  }
  // The message says what was wrong; a core file in the user's directory would say no more.
  const rlimit no_core{0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
  std::abort();  // restores on the way out
}

}  // namespace

void signal_handler(int signum) {
  std::signal(SIGALRM, SIG_IGN);  // drops one that is pending
  std::signal(SIGALRM, leave_now);
  sigset_t limit;
  sigemptyset(&limit);
  sigaddset(&limit, SIGALRM);
  pthread_sigmask(SIG_UNBLOCK, &limit, nullptr);  // the parent may have blocked it
  alarm(kHandlerLimit);
  const EndSignalsBlocked blocked;
  prepare_end();
  erase_line_from_handler();
  if (signum == SIGQUIT) kill(getpid(), SIGQUIT);
  _exit(EXIT_SUCCESS);
}

void install_signal_handlers() {
  for (const int signum : kEndSignals) std::signal(signum, signal_handler);
}

void install_exit_guards(void (*restore_machine)()) {
  restore = restore_machine;
  std::atexit(prepare_end);
  std::set_terminate(report_uncaught);
  // A stack that overflowed has no room for a handler. This is for the main thread; the others do
  // not recurse.
  static char handler_stack[64 * 1024];
  stack_t stack{};
  stack.ss_sp = handler_stack;
  stack.ss_size = sizeof handler_stack;
  sigaltstack(&stack, nullptr);
  // These end a process also where its parent ignored them.
  for (const int signum : {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGSYS}) {
    restore_on(signum);
  }
  std::vector<int> others = {SIGHUP,  SIGXCPU, SIGALRM, SIGVTALRM, SIGPROF,
                             SIGUSR1, SIGUSR2, SIGIO,   SIGPWR,    SIGSTKFLT};
  for (int signum = SIGRTMIN; signum <= SIGRTMAX; ++signum) others.push_back(signum);
  for (const int signum : others) {
    if (!is_ignored(signum)) restore_on(signum);
  }
  for (const int signum : {SIGPIPE, SIGXFSZ}) std::signal(signum, SIG_IGN);
}

}  // namespace velmo
