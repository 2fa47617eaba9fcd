#include "survey/record_json.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "app/text.h"

namespace velmo {
namespace {

// Members that are empty are left out.
template <typename T>
void put(Json& json, const char* name, const T& value) {
  if (!value.empty()) json[name] = value;
}

template <typename T>
T get_or(const Json& json, const char* name, T otherwise) {
  const auto found = json.find(name);
  return found == json.end() || found->is_null() ? otherwise : found->template get<T>();
}

// A whole number that a T holds: what is beyond it must not become another one.
template <typename T>
T whole(const Json& json) {
  if (json.is_number_unsigned() && std::in_range<T>(json.get<uint64_t>())) {
    return static_cast<T>(json.get<uint64_t>());
  }
  if (json.is_number_integer() && !json.is_number_unsigned() &&
      std::in_range<T>(json.get<int64_t>())) {
    return static_cast<T>(json.get<int64_t>());
  }
  throw std::runtime_error("no whole number, or one out of range: " + json.dump());
}

double finite(const Json& json) {
  const double value = json.get<double>();
  if (!std::isfinite(value)) throw std::runtime_error("a number is not finite");
  return value;
}

Json to_json(const Summary& summary) {
  Json json = Json::object();
  for (const auto& [name, e] : summary) {
    json[name] = {{"median", e.median},
                  {"low", e.low},
                  {"high", e.high},
                  {"repeats", e.repeats},
                  {"interval", e.interval}};
  }
  return json;
}

Summary summary_from_json(const Json& json) {
  Summary summary;
  for (const auto& [name, e] : json.items()) {
    summary[name] = {finite(e.at("median")), finite(e.at("low")), finite(e.at("high")),
                     whole<int>(e.at("repeats")), get_or<std::string>(e, "interval", "")};
  }
  return summary;
}

Json to_json(const std::vector<Repeat>& repeats) {
  Json json = Json::array();
  for (const Repeat& repeat : repeats) json.push_back(velmo::to_json(repeat));
  return json;
}

std::vector<Repeat> repeats_from_json(const Json& json) {
  std::vector<Repeat> repeats;
  for (const Json& repeat : json) repeats.push_back(repeat_from_json(repeat));
  return repeats;
}

Json to_json(const Source& from) {
  return {{"cpu_node", from.cpu_node ? Json(*from.cpu_node) : Json(nullptr)}, {"cpus", from.cpus}};
}

Json to_json(const Memory& memory) {
  if (memory.node) return {{"node", *memory.node}};
  if (!memory.device.empty()) return {{"device", memory.device}};
  if (!memory.directory.empty()) return {{"directory", memory.directory}};
  return {{"node", nullptr}};
}

Memory memory_from_json(const Json& json) {
  Memory memory;
  const auto node = json.find("node");
  if (node != json.end() && !node->is_null()) memory.node = whole<int>(*node);
  memory.device = get_or<std::string>(json, "device", "");
  memory.directory = get_or<std::string>(json, "directory", "");
  return memory;
}

void put_histogram(Json& json, const std::optional<Histogram>& histogram) {
  if (!histogram) return;
  json["histogram_ns"] = {{"edges", histogram->edges}, {"counts", histogram->counts}};
}

std::optional<Histogram> histogram_of(const Json& json) {
  const auto found = json.find("histogram_ns");
  if (found == json.end()) return std::nullopt;
  Histogram histogram;
  for (const Json& edge : found->at("edges")) histogram.edges.push_back(finite(edge));
  for (const Json& count : found->at("counts")) histogram.counts.push_back(whole<int64_t>(count));
  return histogram;
}

Cell cell_from_json(const Json& json) {
  Cell cell;
  cell.kind = json.at("kind").get<std::string>();
  const Json& from = json.at("from");
  if (const Json& node = from.at("cpu_node"); !node.is_null())
    cell.from.cpu_node = whole<int>(node);
  cell.from.cpus = from.at("cpus").get<std::string>();
  cell.memory = memory_from_json(json.at("memory"));
  cell.parameters = json.at("parameters");
  if (!cell.parameters.is_object()) throw std::runtime_error("parameters is not an object");
  if (json.contains("repeats")) cell.repeats = repeats_from_json(json.at("repeats"));
  if (json.contains("points")) {
    for (const Json& point : json.at("points")) {
      cell.points.push_back({whole<int64_t>(point.at("delay")),
                             repeats_from_json(point.at("repeats")),
                             summary_from_json(point.at("summary")), histogram_of(point)});
    }
  }
  cell.summary = summary_from_json(json.at("summary"));
  cell.histogram_ns = histogram_of(json);
  cell.stopped_by = json.at("stopped_by").get<std::string>();
  cell.state = json.at("state").get<std::string>();
  cell.message = get_or<std::string>(json, "message", "");
  cell.marks = get_or<std::vector<std::string>>(json, "marks", {});
  return cell;
}

// No survey nests as deep; what reads and writes documents calls itself at each depth.
constexpr int kMostDepth = 64;

// The document in `text`, whose names and texts may go to a terminal.
Json document_of(const std::string& text) {
  return Json::parse(text, [](int depth, Json::parse_event_t event, Json& value) {
    if (depth > kMostDepth) throw std::runtime_error("it is nested too deep");
    if (!value.is_string()) return true;
    std::string shown = printable(value.get_ref<const std::string&>());
    if (event == Json::parse_event_t::key && value != shown) {
      throw std::runtime_error("the name of a member holds control characters: " + shown);
    }
    value = std::move(shown);
    return true;
  });
}

Survey survey_from_json(const Json& json) {
  const auto format = json.is_object() ? json.find("format") : json.end();
  if (!json.is_object() || format == json.end() || *format != kSurveyFormat) {
    throw std::runtime_error("not a survey of velmo");
  }
  const auto version = json.at("format_version").get<std::string>();
  if (version.substr(0, version.find('.')) != "1") {
    throw std::runtime_error("written in version " + version + " of the format, this velmo reads " +
                             kSurveyFormatVersion);
  }
  Survey survey;
  const Json& velmo = json.at("velmo");
  survey.velmo_version = velmo.at("version").get<std::string>();
  survey.velmo_commit = get_or<std::string>(velmo, "commit", "");
  survey.run_notes = json.at("run");
  const Json& run = json.at("run");
  survey.host = run.at("host").get<std::string>();
  survey.started = run.at("started").get<std::string>();
  survey.ended = run.at("ended").get<std::string>();
  survey.arguments = run.at("arguments").get<std::vector<std::string>>();
  survey.seed = whole<uint64_t>(run.at("seed"));
  survey.state = run.at("state").get<std::string>();
  for (const char* name : {"host", "started", "ended", "arguments", "seed", "state"}) {
    survey.run_notes.erase(name);
  }
  survey.machine = json.at("machine");
  if (!survey.machine.is_object()) throw std::runtime_error("machine is not an object");
  if (!json.at("cells").is_array()) throw std::runtime_error("cells is not a list");
  for (const Json& cell : json.at("cells")) survey.cells.push_back(cell_from_json(cell));
  return survey;
}

}  // namespace

Json to_json(const Repeat& repeat) {
  Json json = {{"round", repeat.round}};
  for (const auto& [name, value] : repeat.figures) json[name] = value;
  json["seconds"] = repeat.seconds;
  put(json, "message", repeat.message);
  put(json, "placement", repeat.placement);
  put(json, "watch", repeat.watch);
  for (const Disturbance& d : repeat.disturbed_by) {
    json["disturbed_by"].push_back(
        {{"rule", d.rule}, {"value", d.value}, {"limit", d.limit}, {"unit", d.unit}});
  }
  return json;
}

Repeat repeat_from_json(const Json& json) {
  Repeat repeat;
  repeat.round = whole<int>(json.at("round"));
  for (const char* name : {kAverageNs, kMedianNs, kP99Ns, kP999Ns, kBytesPerSecond}) {
    if (json.contains(name)) repeat.figures[name] = finite(json.at(name));
  }
  repeat.seconds = finite(json.at("seconds"));
  repeat.message = get_or<std::string>(json, "message", "");
  if (json.contains("placement")) repeat.placement = json.at("placement");
  if (json.contains("watch")) repeat.watch = json.at("watch");
  if (json.contains("disturbed_by")) {
    for (const Json& d : json.at("disturbed_by")) {
      repeat.disturbed_by.push_back({d.at("rule").get<std::string>(), finite(d.at("value")),
                                     finite(d.at("limit")), get_or<std::string>(d, "unit", "")});
    }
  }
  return repeat;
}

Json to_json(const Cell& cell) {
  Json json = {{"kind", cell.kind},
               {"from", to_json(cell.from)},
               {"memory", to_json(cell.memory)},
               {"parameters", cell.parameters}};
  if (cell.kind == kLoadedLatency) {
    json["points"] = Json::array();
    for (const Point& point : cell.points) {
      Json& to = json["points"].emplace_back();
      to = {{"delay", point.delay},
            {"repeats", to_json(point.repeats)},
            {"summary", to_json(point.summary)}};
      put_histogram(to, point.histogram_ns);
    }
  }
  json["repeats"] = to_json(cell.repeats);
  json["summary"] = to_json(cell.summary);
  put_histogram(json, cell.histogram_ns);
  json["stopped_by"] = cell.stopped_by;
  json["state"] = cell.state;
  put(json, "message", cell.message);
  put(json, "marks", cell.marks);
  return json;
}

Json to_json(const Survey& survey) {
  Json run = {{"host", survey.host},   {"started", survey.started},
              {"ended", survey.ended}, {"arguments", survey.arguments},
              {"seed", survey.seed},   {"state", survey.state}};
  run.update(survey.run_notes);
  Json json = {{"format", kSurveyFormat},
               {"format_version", kSurveyFormatVersion},
               {"velmo", {{"version", survey.velmo_version}, {"commit", survey.velmo_commit}}},
               {"run", run},
               {"machine", survey.machine},
               {"cells", Json::array()}};
  for (const Cell& cell : survey.cells) json["cells"].push_back(to_json(cell));
  return json;
}

// Bytes that are no UTF-8, as a path may hold, are replaced.
std::string survey_text(const Survey& survey) {
  return to_json(survey).dump(1, ' ', false, Json::error_handler_t::replace) + '\n';
}

Survey parse_survey(const std::string& text, const std::string& name) {
  try {
    return survey_from_json(document_of(text));
  } catch (const Json::parse_error&) {
    throw std::runtime_error(name + ": no survey: not JSON, or cut short");
  } catch (const std::exception& failure) {
    const std::string_view what = failure.what();
    const size_t tag = what.starts_with('[') ? what.find("] ") : std::string_view::npos;
    throw std::runtime_error(name + ": no survey that can be read: " +
                             std::string(what.substr(tag == std::string_view::npos ? 0 : tag + 2)));
  }
}

// A pipe is read to its end, but nobody is waited for to open one.
std::string survey_file_text(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat status {};
  bool good = fd >= 0 && fstat(fd, &status) == 0;
  const bool device = good && (S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode));
  good = good && !device;
  std::string text;
  std::vector<char> part(1 << 16);
  while (good) {
    const ssize_t n = read(fd, part.data(), part.size());
    if (n == 0) break;
    if (n > 0) text.append(part.data(), static_cast<size_t>(n));
    pollfd more{fd, POLLIN, 0};
    good = n > 0 || errno == EINTR || (errno == EAGAIN && poll(&more, 1, -1) >= 0);
  }
  const std::string why = device ? "it is a device" : std::strerror(errno);
  if (fd >= 0) close(fd);
  if (!good) throw std::runtime_error("Failed to read " + path + ": " + why);
  return text;
}

Survey read_survey(const std::string& path) { return parse_survey(survey_file_text(path), path); }

}  // namespace velmo
