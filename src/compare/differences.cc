#include "compare/differences.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace velmo {
namespace {

constexpr char kNotKnown[] = "not known";

// The values that the surveys of a side have.
using Values = std::set<std::string>;

std::string text_of(const Json& json) {
  return json.is_string() ? json.get<std::string>()
                          : json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string joined(const Values& values) {
  if (values.empty()) return "none";
  std::string text;
  for (const std::string& value : values) text += (text.empty() ? "" : " / ") + value;
  return text;
}

// {"value": null, "reason": ...}: what could not be read.
bool is_unknown(const Json& json) {
  return json.is_null() || (json.is_object() && json.contains("reason") && json.contains("value") &&
                            json.at("value").is_null());
}

// What names an element of an array, so that one more memory module does not shift all others.
std::string name_of(const Json& element, size_t index) {
  for (const char* name : {"locator", "node", "name"}) {
    if (element.contains(name) && element.at(name).is_primitive()) return text_of(element.at(name));
  }
  return std::to_string(index);
}

// The leaves of the document `json` under `path`.
void flatten(const Json& json, const std::string& path, std::map<std::string, Values>& leaves) {
  if (is_unknown(json)) {
    leaves[path].insert(kNotKnown);
  } else if (json.is_object()) {
    const std::string prefix = path.empty() ? "" : path + '.';
    for (const auto& [name, value] : json.items()) {
      if (name == "free" || name == "free_bytes") continue;
      flatten(value, prefix + name, leaves);
    }
  } else if (json.is_array() && !json.empty() && json.front().is_object()) {
    for (size_t i = 0; i < json.size(); ++i) {
      flatten(json[i], path + '[' + name_of(json[i], i) + ']', leaves);
    }
  } else {
    leaves[path].insert(text_of(json));
  }
}

std::map<std::string, Values> machine_leaves(const Side& side) {
  std::map<std::string, Values> leaves;
  for (const Survey& survey : side.surveys) {
    leaves["velmo.version"].insert(survey.velmo_version);
    leaves["velmo.commit"].insert(survey.velmo_commit);
    leaves["host"].insert(survey.host);
    flatten(survey.machine, "", leaves);
  }
  return leaves;
}

std::map<std::string, Values> parameters_of(const std::vector<const Cell*>& cells) {
  std::map<std::string, Values> parameters;
  for (const Cell* cell : cells) {
    parameters["cpus"].insert(cell->from.cpus);
    for (const auto& [name, value] : cell->parameters.items()) {
      parameters[name].insert(text_of(value));
    }
  }
  return parameters;
}

// Calls `report` with the name, the old and the new values of what differs.
template <typename Report>
void for_each_difference(const std::map<std::string, Values>& old_leaves,
                         const std::map<std::string, Values>& new_leaves, const Report& report) {
  const auto values = [](const std::map<std::string, Values>& leaves, const std::string& name) {
    const auto found = leaves.find(name);
    return found == leaves.end() ? Values{} : found->second;
  };
  std::set<std::string> names;
  for (const auto& [name, leaf] : old_leaves) names.insert(name);
  for (const auto& [name, leaf] : new_leaves) names.insert(name);
  for (const std::string& name : names) {
    const std::string old_text = joined(values(old_leaves, name));
    const std::string new_text = joined(values(new_leaves, name));
    if (old_text != new_text) report(name, old_text, new_text);
  }
}

}  // namespace

std::vector<Difference> find_differences(const Side& old_side, const Side& new_side,
                                         const std::vector<CellPair>& pairs) {
  std::map<std::tuple<std::string, std::string, std::string, std::string>, int> settings;
  for (const CellPair& pair : pairs) {
    if (!pair.matched()) continue;
    for_each_difference(
        parameters_of(pair.old_cells), parameters_of(pair.new_cells),
        [&](const std::string& name, const std::string& old_text, const std::string& new_text) {
          ++settings[{name, pair.any().kind, old_text, new_text}];
        });
  }
  std::vector<Difference> differences;
  for (const auto& [setting, cells] : settings) {
    const auto& [name, kind, old_text, new_text] = setting;
    differences.push_back({name, old_text, new_text, kind, cells});
  }
  for_each_difference(
      machine_leaves(old_side), machine_leaves(new_side),
      [&](const std::string& name, const std::string& old_text, const std::string& new_text) {
        differences.push_back({name, old_text, new_text, "", 0});
      });
  return differences;
}

}  // namespace velmo
