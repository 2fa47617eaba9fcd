// Reads what a fleet keeps of a survey out of its JSON, and nothing else of it.

#pragma once

#include <memory>
#include <string>

#include "fleet/host.h"

namespace velmo {

// One for each thread: it keeps its memory from file to file.
class HostReader {
 public:
  // Texts and names of figures go to `fleet`.
  explicit HostReader(Fleet& fleet);
  ~HostReader();

  // What the file at `path` says of its host. Throws std::runtime_error with what is wrong in the
  // user's words: cannot be read, empty, no JSON, another format or version, damaged.
  Host read(const std::string& path);

 private:
  struct Parser;

  Fleet& fleet_;
  std::unique_ptr<Parser> parser_;
};

}  // namespace velmo
