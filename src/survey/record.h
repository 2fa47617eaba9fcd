// What a survey found, as plain data: the contents of its file (docs/survey.schema.json).
//
// A survey has cells, one for each thing that is measured: one source of the accesses, one memory,
// one set of parameters. A cell has repeats, each measured on a fresh buffer, and a summary of
// them. A cell of loaded latency has points instead, one for each delay of the load, each with
// repeats and a summary of its own.

#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmo {

// Documents keep the order in which they are written.
using Json = nlohmann::ordered_json;

inline constexpr char kSurveyFormat[] = "velmo-survey";
inline constexpr char kSurveyFormatVersion[] = "1.0";

// Kinds of cells.
inline constexpr char kIdleLatency[] = "idle_latency";
inline constexpr char kLatencyBySize[] = "latency_by_size";
inline constexpr char kBandwidth[] = "bandwidth";
inline constexpr char kLoadedLatency[] = "loaded_latency";

// Names of figures. Latencies are in ns.
inline constexpr char kAverageNs[] = "average_ns";
inline constexpr char kMedianNs[] = "median_ns";
inline constexpr char kP99Ns[] = "p99_ns";
inline constexpr char kP999Ns[] = "p99_9_ns";
inline constexpr char kBytesPerSecond[] = "bytes_per_second";

// States of a cell and of a run.
inline constexpr char kOk[] = "ok";
inline constexpr char kFailed[] = "failed";
inline constexpr char kDisturbed[] = "disturbed";
inline constexpr char kComplete[] = "complete";
inline constexpr char kInterrupted[] = "interrupted";

using Figures = std::map<std::string, double>;

// A rule of undisturbed measuring that a repeat broke.
struct Disturbance {
  std::string rule;  // "stolen_time"
  double value;      // what was seen
  double limit;      // what the rule allows
  std::string unit;  // of both: "%", "1/s", ""
};

// One measurement on a fresh buffer. One that failed has a message and no figures.
struct Repeat {
  int round = 0;  // of the survey, from 1 on
  Figures figures;
  double seconds = 0;  // of the measured stretch
  std::string message;
  Json placement;  // where its pages were; null: not asked
  Json watch;      // what happened meanwhile; null: not watched
  std::vector<Disturbance> disturbed_by;

  bool failed() const { return figures.empty(); }
};

// The median of a figure over the repeats and an interval about it.
struct Estimate {
  double median = 0;
  double low = 0;
  double high = 0;
  int repeats = 0;       // that it is taken from
  std::string interval;  // "95 %" (of the median, by order statistics) or "range"
};

using Summary = std::map<std::string, Estimate>;

// Where the accesses come from.
struct Source {
  std::optional<int> cpu_node;  // none: CPUs of several nodes
  std::string cpus;             // as ranges: "0-3,8"

  bool operator==(const Source&) const = default;
};

// What is accessed: one of the three, or of a cell over the whole machine none, when every CPU
// accesses its own node.
struct Memory {
  std::optional<int> node;
  std::string device;
  std::string directory;

  bool operator==(const Memory&) const = default;
};

struct Histogram {
  std::vector<double> edges;    // in ns, rising; one more than counts
  std::vector<int64_t> counts;  // of samples at edges[i] and more, below edges[i + 1]
};

struct Point {
  int64_t delay = 0;  // of the load, in turns
  std::vector<Repeat> repeats;
  Summary summary;
  std::optional<Histogram> histogram_ns = {};
};

struct Cell {
  std::string kind;
  Source from;
  Memory memory;
  // "scope": what of its kind the cell is ("node"; "large_pages" of idle latency; "one_thread" and
  // "machine" of bandwidth); "mix", "buffer_bytes", "page_size" and others by kind.
  Json parameters = Json::object();
  std::vector<Repeat> repeats;
  std::vector<Point> points;  // of loaded latency, by rising delay
  Summary summary;
  std::optional<Histogram> histogram_ns;
  std::string stopped_by;  // "precision", "repeats", "time_limit", "interrupted", "failed"
  std::string state = kOk;
  std::string message;  // why it failed, or what else there is to know; may be empty
  // What makes its figures doubtful: "placement", "small_buffer", "page_size", "failed_repeats".
  std::vector<std::string> marks;
};

struct Survey {
  std::string velmo_version;
  std::string velmo_commit;
  std::string host;
  std::string started;  // UTC, "2026-11-21T20:33:58Z"
  std::string ended;
  std::vector<std::string> arguments;
  uint64_t seed = 0;
  std::string state = kComplete;
  Json run_notes = Json::object();  // other members of "run": docs/survey.schema.json
  Json machine = Json::object();    // what is not known is {"value": null, "reason": "..."}
  std::vector<Cell> cells;
};

// What a cell of one survey has in common with its like in another: kind, scope, source node,
// memory, mix and, of latency by size, the size. "idle_latency/node/0/node 1".
std::string cell_key(const Cell& cell);

// "node 1", "/dev/dax0.0", "/mnt/pmem", or "own nodes".
std::string memory_text(const Memory& memory);

// The parameter `name` of a cell as text; empty where it has none.
std::string parameter_text(const Cell& cell, std::string_view name);

// Whether the cell was never begun, for want of time or because the survey was interrupted.
bool is_unreached(const Cell& cell);

// The median of the figure `name`; none where the summary lacks it.
std::optional<double> median_of(const Summary& summary, std::string_view name);

}  // namespace velmo
