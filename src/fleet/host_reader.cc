#include "fleet/host_reader.h"

#include <fcntl.h>
#include <simdjson.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "fleet/cell_reader.h"
#include "fleet/machine_reader.h"

namespace velmo {
namespace {

using simdjson::ondemand::field;
using simdjson::ondemand::object;
using simdjson::ondemand::value;

// A survey of sixteen nodes with all that --thorough adds stays below this.
constexpr size_t kLargestFile = size_t{256} << 20;
// Buffers beyond this are given back after the file.
constexpr size_t kKeptBuffer = size_t{16} << 20;

struct Descriptor {
  explicit Descriptor(const std::string& path)
      // A pipe without a writer would wait for one.
      : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
  int fd;
};

std::runtime_error failure(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

// Reads the file into `text`, which gets the room behind it that the parser needs.
void read_file(const std::string& path, std::string& text) {
  const Descriptor file(path);
  struct stat status {};
  if (file.fd < 0 || fstat(file.fd, &status) != 0) throw failure("cannot be read");
  if (!S_ISREG(status.st_mode)) throw std::runtime_error("is not a regular file");
  const auto size = static_cast<size_t>(status.st_size);
  if (size == 0) throw std::runtime_error("is empty");
  if (size > kLargestFile) throw std::runtime_error("is no survey: larger than 256 MiB");
  text.resize(size + simdjson::SIMDJSON_PADDING);
  size_t done = 0;
  while (done < size) {
    const ssize_t got = ::read(file.fd, text.data() + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw failure("cannot be read");
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  std::fill(text.begin() + static_cast<ptrdiff_t>(done), text.end(), '\0');
  text.resize(done);
}

void read_run(object json, Host& host, std::string& state) {
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    if (name == "host") host.name = std::string_view(member.value());
    if (name == "started") host.started = std::string_view(member.value());
    if (name == "state") state = std::string_view(member.value());
  }
}

// "2 of 41 cells disturbed, first: idle_latency/node/0/node 1 disturbed"
std::string why_again(const std::string& state, const CellsRead& read) {
  if (state != kComplete) return state.empty() ? "not ended" : state;
  const std::string of = " of " + std::to_string(read.cells) + " cells ";
  if (read.disturbed > 0) {
    return std::to_string(read.disturbed) + of + "doubtful, first: " + read.again;
  }
  if (read.failed > 0) return std::to_string(read.failed) + of + "failed";
  return read.cells == 0 ? "no cells" : "";
}

}  // namespace

struct HostReader::Parser {
  explicit Parser(FigureNames& names) : cells(names) {}

  std::string text;
  simdjson::ondemand::parser parser;
  CellReader cells;
};

HostReader::HostReader(Fleet& fleet)
    : fleet_(fleet), parser_(std::make_unique<Parser>(fleet.figures)) {}

HostReader::~HostReader() = default;

Host HostReader::read(const std::string& path) {
  Host host;
  host.path = path;
  std::string format;
  std::string version;
  std::string state;
  bool has_cells = false;
  CellsRead cells;
  MachineReader machine(fleet_.texts);
  try {
    read_file(path, parser_->text);
    auto document = parser_->parser.iterate(
        simdjson::padded_string_view(parser_->text.data(), parser_->text.size(),
                                     parser_->text.size() + simdjson::SIMDJSON_PADDING));
    for (field member : document.get_object()) {
      const std::string_view name = member.unescaped_key();
      value content = member.value();
      if (name == "format") format = std::string_view(content);
      if (name == "format_version") version = std::string_view(content);
      if (name == "velmo") machine.ReadVersion(content, host);
      if (name == "run") read_run(content, host, state);
      if (name == "machine") machine.Read(content, host);
      if (name == "cells") {
        has_cells = true;
        for (object cell : content.get_array()) parser_->cells.Read(cell, host, cells);
      }
    }
    // At its end there is no place left.
    if (document.current_location().error() == simdjson::SUCCESS)
      throw simdjson::simdjson_error(simdjson::TAPE_ERROR);
  } catch (const simdjson::simdjson_error& error) {
    // A foreign document is told by what it has in place of the format.
    if (!format.empty() && format != kSurveyFormat) {
      throw std::runtime_error("is no survey of velmo, but of format " + format);
    }
    throw std::runtime_error(std::string("is no whole survey: ") + error.what());
  }
  if (parser_->text.capacity() > kKeptBuffer) parser_ = std::make_unique<Parser>(fleet_.figures);
  if (format != kSurveyFormat) throw std::runtime_error("is no survey of velmo");
  if (version.substr(0, version.find('.')) != "1") {
    throw std::runtime_error("is of version " + version + " of the format, this velmo reads " +
                             kSurveyFormatVersion);
  }
  if (host.name.empty() || host.started.empty() || !has_cells) {
    throw std::runtime_error("is no whole survey: it lacks the host, its time, or the cells");
  }
  host.again = why_again(state, cells);
  host.judged = state == kComplete && cells.disturbed == 0 && cells.cells > cells.failed;
  machine.Finish(host, cells.method);
  host.buffer_bytes = cells.buffer_bytes;
  if (!host.judged) host.figures.clear();
  std::sort(host.figures.begin(), host.figures.end(),
            [](const Figure& a, const Figure& b) { return a.name < b.name; });
  host.figures.shrink_to_fit();
  return host;
}

}  // namespace velmo
