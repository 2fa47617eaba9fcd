// The result files that a benchmark leaves in the current directory.

#pragma once

#include <ext/stdio_filebuf.h>
#include <ostream>
#include <string>

namespace velmo {

// Local time as "%Y%m%d_%H%M%S", the part of a log name that tells two runs apart.
std::string time_stamp();

// An output stream on a new or truncated regular file of mode 0666.
//
// The program runs as root, perhaps in a directory that others may write, so the file is opened
// without following a symbolic link, anything that is not a regular file with this one name is left
// alone (a FIFO would also block), and the mode is set on the open descriptor. A file that cannot
// be opened leaves the stream in its failed state: the log is lost, silently, and the run goes on.
// A mode that cannot be set is a warning. So is a log that cannot be written to its end, as on a
// full file system: half a log would be taken for a whole one, so it is removed.
class LogFile : public std::ostream {
 public:
  explicit LogFile(const std::string& name);
  ~LogFile() override;
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // True when a log that was open could not be written.
  static bool any_lost() { return any_lost_; }

 private:
  static bool any_lost_;
  std::string name_;
  __gnu_cxx::stdio_filebuf<char> file_;
};

}  // namespace velmo
