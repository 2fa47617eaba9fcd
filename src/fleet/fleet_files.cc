#include "fleet/fleet_files.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "app/cpu_set.h"
#include "fleet/host_reader.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

constexpr int kMostThreads = 16;  // more wait for the disk, and for names that all share

// CPUs that the process may use.
int usable_cpus() {
  const std::optional<CpuSet> cpus = CpuSet::OfCaller();
  return cpus ? cpus->Count() : 1;
}

// Lines "host<tab>reason", as packaging/slurm/velmo-survey.sbatch writes them.
void read_missing(const std::filesystem::path& path, std::vector<Named>& missing) {
  std::ifstream in(path);
  for (std::string line; read_line(in, line);) {
    const size_t tab = std::min(line.find('\t'), line.size());
    missing.push_back({line.substr(0, tab), line.substr(std::min(tab + 1, line.size()))});
  }
}

std::vector<std::string> files_of(const std::vector<std::string>& paths,
                                  std::vector<Named>& missing) {
  std::vector<std::string> files;
  for (const std::string& path : paths) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (error) throw std::runtime_error("Failed to open " + path + ": " + error.message());
    if (!std::filesystem::is_directory(status)) {
      files.push_back(path);
      continue;
    }
    std::filesystem::directory_iterator entries(path, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
      std::error_code unknown;
      if (entries->path().extension() == ".json" && !entries->is_directory(unknown)) {
        files.push_back(entries->path());
      }
    }
    if (error) throw std::runtime_error("Failed to read " + path + ": " + error.message());
    read_missing(std::filesystem::path(path) / "missing.txt", missing);
  }
  std::sort(files.begin(), files.end());
  files.erase(std::unique(files.begin(), files.end()), files.end());
  return files;
}

struct ReadFile {
  Host host;
  std::string why_not;
};

void read_one(HostReader& reader, const std::string& path, ReadFile& result) {
  try {
    result.host = reader.read(path);
  } catch (const std::exception& failure) {
    result.why_not = failure.what();
  }
}

std::vector<ReadFile> read_all(const std::vector<std::string>& files, Fleet& fleet) {
  std::vector<ReadFile> read(files.size());
  std::atomic<size_t> next = 0;
  const auto work = [&] {
    HostReader reader(fleet);
    for (size_t i = next++; i < files.size(); i = next++) read_one(reader, files[i], read[i]);
  };
  const auto threads = std::min<size_t>(std::min(usable_cpus(), kMostThreads), files.size());
  std::vector<std::jthread> others;
  for (size_t i = 1; i < threads; ++i) others.emplace_back(work);
  work();
  return read;
}

bool is_older(const Host& a, const Host& b) {
  return std::tie(a.started, a.path) < std::tie(b.started, b.path);
}

void number_figures_by_label(Fleet& fleet) {
  const std::vector<uint32_t> renumbered = fleet.figures.sort();
  for (Host& host : fleet.hosts) {
    for (Figure& figure : host.figures) figure.name = renumbered[figure.name];
    std::sort(host.figures.begin(), host.figures.end(),
              [](const Figure& a, const Figure& b) { return a.name < b.name; });
  }
}

}  // namespace

FleetFiles read_fleet(const std::vector<std::string>& paths, Surveys surveys, Fleet& fleet) {
  FleetFiles result;
  const std::vector<std::string> files = files_of(paths, result.missing);
  result.files = files.size();
  std::vector<Host> hosts;
  {
    std::vector<ReadFile> read = read_all(files, fleet);
    for (size_t i = 0; i < read.size(); ++i) {
      if (read[i].why_not.empty()) {
        hosts.push_back(std::move(read[i].host));
      } else {
        result.left_out.push_back({files[i], std::move(read[i].why_not)});
      }
    }
  }
  std::sort(hosts.begin(), hosts.end(), [](const Host& a, const Host& b) {
    return a.name != b.name ? a.name < b.name : is_older(b, a);
  });
  const size_t before = fleet.hosts.size();
  for (Host& host : hosts) {
    const bool again = fleet.hosts.size() > before && fleet.hosts.back().name == host.name;
    if (again && surveys == Surveys::kNewest) {
      const bool older = host.started < fleet.hosts.back().started;
      result.left_out.push_back(
          {host.path, (older ? "is an older survey of " : "is one more survey of ") + host.name});
    } else {
      fleet.hosts.push_back(std::move(host));
    }
  }
  number_figures_by_label(fleet);
  return result;
}

}  // namespace velmo
