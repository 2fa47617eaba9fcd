#include "compare/matching.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <system_error>

#include "survey/record_json.h"

namespace velmo {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> survey_files(const std::string& directory) {
  std::vector<std::string> files;
  std::error_code failure;
  for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (entry->path().extension() == ".json") files.push_back(entry->path());
  }
  if (failure) throw std::runtime_error("Failed to read " + directory + ": " + failure.message());
  if (files.empty()) {
    throw std::runtime_error(directory + ": no survey in this directory (no file named *.json)");
  }
  std::sort(files.begin(), files.end());
  return files;
}

Survey read_distinct(const std::string& path) {
  Survey survey = read_survey(path);
  std::set<std::string> keys;
  for (const Cell& cell : survey.cells) {
    if (!keys.insert(cell_key(cell)).second) {
      throw std::runtime_error(path + ": has the cell " + cell_key(cell) + " twice");
    }
  }
  return survey;
}

}  // namespace

Side read_side(const std::string& path) {
  Side side{path, {}};
  std::error_code unknown;
  if (!fs::is_directory(path, unknown)) {
    side.surveys.push_back(read_distinct(path));
    return side;
  }
  for (const std::string& file : survey_files(path)) side.surveys.push_back(read_distinct(file));
  return side;
}

std::vector<CellPair> match_cells(const Side& old_side, const Side& new_side) {
  std::vector<CellPair> pairs;
  std::map<std::string, size_t> places;
  const auto add = [&](const Side& side, std::vector<const Cell*> CellPair::*cells) {
    for (const Survey& survey : side.surveys) {
      for (const Cell& cell : survey.cells) {
        const std::string key = cell_key(cell);
        const auto [place, is_new] = places.try_emplace(key, pairs.size());
        if (is_new) pairs.push_back({key, {}, {}});
        (pairs[place->second].*cells).push_back(&cell);
      }
    }
  };
  add(old_side, &CellPair::old_cells);
  add(new_side, &CellPair::new_cells);
  return pairs;
}

}  // namespace velmo
