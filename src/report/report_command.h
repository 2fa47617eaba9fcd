// velmo report: writes surveys as a page for a browser.

#pragma once

namespace velmo {

// `argv[0]` is the word. Returns the exit status.
int run_report(int argc, char** argv);

}  // namespace velmo
