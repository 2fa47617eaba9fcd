// What went wrong, told once and where it is known: a warning, or an error that ends the run.

#pragma once

#include <ostream>

namespace velmo {

// Standard error behind the warning prefix. A warning never ends the program.
std::ostream& Warn();

// An error that ends the run: `Fatal() << what << '\n';` writes the error prefix and the message to
// standard error and, at the end of the statement, calls exit(1). Of several threads that fail, the
// first one ends the program and the others wait for it.
class Fatal {
 public:
  Fatal();
  Fatal(const Fatal&) = delete;
  Fatal& operator=(const Fatal&) = delete;
  [[noreturn]] ~Fatal();

  template <typename T>
  Fatal& operator<<(const T& value) {
    out_ << value;
    return *this;
  }

 private:
  std::ostream& out_;  // standard error
};

}  // namespace velmo
