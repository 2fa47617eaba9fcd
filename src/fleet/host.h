// What a fleet keeps of each survey: its figures, and what its host should have in common with
// others. A hundred thousand of them stay in memory at a time, so texts and names of figures are
// kept once, as numbers of a list.

#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velmo {

// Figures of one kind spread alike, and are judged by one threshold.
enum class FigureClass : uint8_t {
  kIdleAverage,
  kIdle99,
  kIdle999,
  kBandwidth,
  kLoadedHalf,        // latency at half of the curve's largest bandwidth
  kLoadedNineTenths,  // at nine tenths of it
  kLoadedPeak,        // the largest bandwidth
};
inline constexpr int kFigureClasses = 7;

struct FigureName {
  FigureClass figure_class;
  std::string cell;   // as of cell_key()
  std::string pages;  // cells that were measured on other pages are no likes
  std::string label;  // "idle latency average, node 0 to node 1"
};

// Bytes a second; nanoseconds otherwise.
bool is_bandwidth(FigureClass figure_class);

// "average_ns", "bytes_per_second_at_peak": the figure's name in JSON.
std::string_view figure_id(FigureClass figure_class);

struct Figure {
  uint32_t name;      // in FigureNames
  float value;        // above 0
  float uncertainty;  // standard deviation of `value` as a share of it, by the survey's interval
};

// What may explain that a host is slow, the likeliest first. Texts, those of several parts with a
// line a part: its name, a tab, what it is. 0 of TextPool: not known.
enum Property : uint8_t {
  kModules,  // a line a module: locator, then size and speed, behind tabs
  kFirmware,
  kMicrocode,
  kGovernor,
  kLargestClock,
  kCpus,
  kLimits,
  kTransparentHugePages,
  kNumaBalancing,
  kMitigations,
  kHypervisor,
  kKernel,
  kVelmoVersion,
  kProperties
};

struct Host {
  std::string name;
  std::string started;
  std::string path;
  std::string again;  // why to survey it again; where not judged either, its figures are gone
  bool judged = true;
  uint32_t equals = 0;             // text of what all hosts of a group have in common
  double buffer_bytes = 0;         // of idle latency; 0: not known
  std::vector<double> node_bytes;  // by node number
  std::array<uint32_t, kProperties> properties{};
  std::vector<Figure> figures;  // by rising name
};

// Texts by number. Any thread may add.
class TextPool {
 public:
  // The number of `text`, the same for equal texts; 0 for the empty one.
  uint32_t number(std::string_view text);
  const std::string& text(uint32_t number) const { return *texts_[number]; }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, uint32_t> numbers_;
  std::vector<const std::string*> texts_ = {&kEmpty};
  static const std::string kEmpty;
};

// Names of figures by number, found by cell and class. Any thread may add.
class FigureNames {
 public:
  uint32_t number(const FigureName& name);
  const FigureName& name(uint32_t number) const { return *names_[number]; }
  size_t size() const { return names_.size(); }

  // New numbers, in the order of the labels, so that they do not depend on which thread came first.
  // Returns the new number of each old one.
  std::vector<uint32_t> sort();

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::pair<uint32_t, FigureName>> numbers_;
  std::vector<const FigureName*> names_;
};

// All surveys of one call.
struct Fleet {
  TextPool texts;
  FigureNames figures;
  std::vector<Host> hosts;
};

}  // namespace velmo
