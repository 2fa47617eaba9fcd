// Files that appear whole or not at all.

#pragma once

#include <string>
#include <string_view>

namespace velmo {

// Writes `text` to a new file beside `path` and renames it to `path`, so that a reader never meets
// half of it and a file of that name is not lost when the write fails. A symbolic link of that name
// is replaced, not followed; what is no regular file, or a link to it, is refused. Empty: done;
// else what failed, in the user's words, and nothing is left behind. The end signals and SIGHUP
// wait for its end.
std::string replace_file(const std::string& path, std::string_view text);

}  // namespace velmo
