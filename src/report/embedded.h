// Files that the build puts into the program: Chart.js, and *.js and *.css of src/report and
// src/fleet (cmake/survey.cmake).

#pragma once

#include <span>
#include <string_view>

namespace velmo {

struct EmbeddedFile {
  std::string_view name;  // without its folder
  std::string_view text;
};

std::span<const EmbeddedFile> embedded_files();

}  // namespace velmo
