// The command line: the option table and what each option accepts.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <string_view>

#include "app/console.h"
#include "app/text.h"
#include "app/version.h"
#include "config/configurator.h"

namespace velmo {
namespace {

constexpr int32_t kMinDelay = 100;  // ns
constexpr int32_t kMaxDelay = 10000;
constexpr int64_t kMinStride = 64;  // bytes
constexpr int64_t kMaxStride = 8192;

// `argument` as an integer; text that cannot be one is refused with `message`.
int parse_number(const std::string& argument, const char* message) {
  if (!is_number(argument)) Fatal() << message << argument << '\n';
  return to_int(argument);
}

// A share of the read/write mix.
int parse_ratio(const std::string& argument, const char* invalid, const char* negative) {
  const int value = parse_number(argument, invalid);
  if (value < 0) Fatal() << negative << argument << '\n';
  return value;
}

// `subject`: "cpu3 is".
[[noreturn]] void reject_unusable(const Configurator& c, const std::string& subject) {
  const std::string usable = vector_to_str_range(c.numa_info.usable_cpus, 0);
  Fatal() << subject << " offline or outside the cpuset of this process. Usable CPUs: " << usable
          << '\n';
}

void set_cpunode(Configurator& c, const char* argument) {
  constexpr char kInvalid[] = "Invalid cpunode: ";
  const int node = parse_number(argument, kInvalid);
  const auto& nodes = c.numa_info.numa_list;
  if (node < 0 || static_cast<size_t>(node) >= nodes.size() || !nodes[node].is_online ||
      !nodes[node].has_cpu) {
    Fatal() << kInvalid << argument << '\n';
  }
  if (std::ranges::none_of(nodes[node].cpu_list,
                           [&](int cpu) { return c.numa_info.IsUsable(cpu); }))
    reject_unusable(c, kInvalid + std::string(argument) + ". Its CPUs " +
                           vector_to_str_range(nodes[node].cpu_list, 0) + " are");
  c.cpunode = node;
}

void set_memnode(Configurator& c, const char* argument) {
  c.memnode = parse_number(argument, "Invalid memnode: ");
  if (c.memnode < 0) c.RejectWithUsage("Invalid memnode.\n");
  c.num_targets = 1;
  c.no_memnode = false;
}

void set_mem_size(Configurator& c, const char* argument) {
  c.mem_size = get_bytes(argument);
  if (c.mem_size <= 0) Fatal() << "Invalid memory-size. (mem_size > 0): " << c.mem_size << '\n';
}

void set_output(Configurator& c, const char* argument) {
  if (*argument == '\0') Fatal() << "Invalid output\n";
  c.output = std::string(argument) + "_";
}

void set_chunk(Configurator& c, const char* argument) {
  const std::string_view exponent = argument;
  if (exponent != "0" && exponent != "1" && exponent != "2") {
    Fatal() << "Invalid chunk-size: " << argument << '\n';
  }
  c.chunk = 1 << (exponent[0] - '0');
}

void set_verbose(Configurator& c, const char* argument) {
  const int level = parse_number(argument, "Invalid verbose: ");
  // The text names a level 2, which no command line can choose.
  if (level < 0 || level > 1) {
    Fatal() << "Invalid verbose (0 <= verbose <= 2): " << argument << '\n';
  }
  c.verbose = level;
}

void set_stride(Configurator& c, const char* argument) {
  const int64_t stride = get_bytes(argument);
  if (stride < kMinStride || stride > kMaxStride || stride % kMinStride != 0) {
    Fatal() << "Invalid stride. Should be aligned to 64 byte. (64 <= stride <= 8192): " << stride
            << '\n';
  }
  c.stride = static_cast<int32_t>(stride);
}

void set_iter(Configurator& c, const char* argument) {
  const int count = parse_number(argument, "Invalid iter: ");
  if (count <= 0) Fatal() << "Invalid iter. (iter > 0): " << argument << '\n';
  if (count > std::numeric_limits<int32_t>::max() - kBandwidthWarmUp) {
    Fatal() << "Invalid iter. Too many iterations: " << argument << '\n';
  }
  c.iter = count;
}

void set_thread(Configurator& c, const char* argument) {
  const int count = parse_number(argument, "Invalid thread: ");
  const long usable = c.numa_info.UsableCount();
  if (count < 2 || count > usable) {
    Fatal() << "Invalid thread. (2 <= thread <= " << usable << "): " << argument << '\n';
  }
  c.thread = count;
}

void set_delay(Configurator& c, const char* argument) {
  // Goes on to the conversion, which has the last word.
  if (!is_number(argument) || std::strpbrk(argument, "0123456789") == nullptr) {
    Error() << "Invalid delay: " << argument << '\n';
  }
  c.delay = to_int(argument);
  if (c.delay < kMinDelay || c.delay > kMaxDelay) {
    Fatal() << "Invalid delay. (100 <= delay <= " << kMaxDelay << ")\n";
  }
}

void set_bw_delay(Configurator& c, const char* argument) {
  // Names the value so far, and goes on to the conversion, which has the last word.
  if (!is_number(argument)) Error() << "Invalid bw_delay: " << c.bw_delay << '\n';
  c.bw_delay = to_int(argument);
  if (c.bw_delay < 0) Fatal() << "Invalid bw_delay. (bw_delay >= 0): " << c.bw_delay << '\n';
}

void set_read(Configurator& c, const char* argument) {
  c.read = parse_ratio(argument, "Invalid read: ", "Invalid read. (read >= 0): ");
}

void set_write(Configurator& c, const char* argument) {
  c.write = parse_ratio(argument, "Invalid write: ", "Invalid write. (write >= 0): ");
}

// Makes the device or file system at `path` the one target.
void set_path(Configurator& c, const std::string& path, int32_t mem_mode, const char* invalid) {
  if (c.mem_mode != kMemNuma && c.mem_mode != mem_mode) {
    Fatal() << "-p, -f and -g can't use together.\n";
  }
  if (access(path.c_str(), F_OK) != 0) Fatal() << invalid;
  c.num_targets = 1;
  c.mem_mode = mem_mode;
  c.no_memnode = false;
  c.path = path;
  c.memnode_list.assign(1, -1);
  c.cpunode_list.assign(1, -1);
}

void set_devdax(Configurator& c, const char* argument) {
  set_path(c, argument, kMemDevdax, "Invalid devdax path. Check the path.\n");
  c.devdax = true;
}

void set_pmem(Configurator& c, const char* argument) {
  set_path(c, argument, kMemPmem, "Invalid pmem path. Check the path.\n");
  c.pmem = true;
}

void set_latency_cpu(Configurator& c, const char* argument) {
  const int cpu = parse_number(argument, "Invalid latency_cpu: ");
  const auto& cpus = c.numa_info.cpu_list;
  if (cpu < 0 || static_cast<size_t>(cpu) >= cpus.size()) {
    Fatal() << "Invalid latency_cpu (0 <= latency_cpu < " << cpus.size() << "): " << cpu << '\n';
  }
  if (!c.numa_info.IsUsable(cpu)) {
    reject_unusable(c, "Invalid latency_cpu. cpu" + std::to_string(cpu) + " is");
  }
  c.latency_cpu = cpus[cpu];
}

void set_load_cpu(Configurator& c, const char* argument) {
  const std::vector<int> wanted = str_range_to_vector(argument);
  if (wanted.size() < 2) Fatal() << "Invalid load_cpu. load_cpu option needs more than 2 cores.\n";
  const auto& cpus = c.numa_info.cpu_list;
  c.load_cpu.clear();  // of several -l, the last one counts
  for (const int cpu : wanted) {
    if (cpu < 0 || static_cast<size_t>(cpu) >= cpus.size()) {
      Fatal() << "Invalid load_cpu (0 <= load_cpu < " << cpus.size() << "): " << cpu << '\n';
    }
    if (cpus[cpu].is_online == 0 || c.numa_info.IsOffline(cpu)) {
      Fatal() << "Invalid load_cpu. cpu" << cpu << " is offline.\n";
    }
    if (!c.numa_info.IsUsable(cpu)) {
      reject_unusable(c, "Invalid load_cpu. cpu" + std::to_string(cpu) + " is");
    }
    c.load_cpu.push_back(cpus[cpu]);
  }
}

void set_use_pa(Configurator& c, const char* argument) {
  c.use_pa_set = true;
  if (argument == nullptr) return;
  if (!is_number(argument)) Fatal() << "Invalid use_pa: " << argument << '\n';
  c.use_pa = to_unsigned(argument);
  // The conversion takes a negative number for a huge one.
  if (argument[0] == '-') Fatal() << "Invalid use_pa (use_pa > 0): " << argument << '\n';
  if (c.use_pa == 0) Fatal() << "Invalid use_pa (use_pa > 0): " << c.use_pa << '\n';
}

// Ends a run that was only to print something.
[[noreturn]] void end_printed() {
  pollfd out{STDOUT_FILENO, 0, 0};
  poll(&out, 1, 0);
  // That a reader has seen enough (head) is no failure.
  if ((out.revents & POLLERR) == 0) check_output();
  std::exit(EXIT_SUCCESS);
}

[[noreturn]] void print_version() {
  std::cout << "\nVELMO ver." << kVersion << '\n';
  end_printed();
}

[[noreturn]] void print_system_info(const Configurator& c) {
  c.mem_info.PrintInfo();
  c.numa_info.PrintInfo();
  end_printed();
}

// How an argument is read: as it stands, as a number, or as a number with a unit behind it.
enum class Reads { kText, kNumber, kSize };

// One option: its names, whether it takes an argument, what it does, and how it reads the argument.
// An option that is listed without an action is known to getopt and refused.
struct OptionRule {
  char letter;
  const char* name;
  int argument;
  void (*accept)(Configurator&, const char* argument);
  Reads reads = Reads::kText;
};

// The conversions ignore what stands behind a number: tells what an argument that converts is taken
// for.
void warn_of_ignored(const OptionRule& rule, const char* argument) {
  if (rule.reads == Reads::kText || argument == nullptr) return;
  char* end = nullptr;
  std::strtoull(argument, &end, 10);
  if (end == argument) return;
  const std::string number(argument, static_cast<const char*>(end));
  std::string_view ignored = end;
  std::string_view unit;
  if (rule.reads == Reads::kSize && !ignored.empty() && std::isdigit(ignored.back()) == 0) {
    unit = ignored.substr(ignored.size() - 1);
    ignored.remove_suffix(1);
  }
  constexpr std::string_view kUnits = "kKmMgG";
  if (ignored.empty() || (!unit.empty() && kUnits.find(unit) == std::string_view::npos)) return;
  Warn() << '-' << rule.letter << ' ' << argument << " is read as " << number << unit << '\n';
}

using C = Configurator;

constexpr OptionRule kRules[] = {
    {'v', "version", no_argument, [](C&, const char*) { print_version(); }},
    {'h', "help", no_argument, [](C&, const char*) {}},  // answered before parsing
    {'I', "system_info", no_argument, [](C& c, const char*) { print_system_info(c); }},
    {'B', "bandwidth", no_argument,
     [](C& c, const char*) {
       c.run_bandwidth = true;
       c.bandwidth_local = 0;
     }},
    {'L', "latency", no_argument,
     [](C& c, const char*) { c.run_latency = c.delayed_latency = c.burst_latency = true; }},
    {'X', "delayed_latency", no_argument,
     [](C& c, const char*) { c.run_latency = c.delayed_latency = true; }},
    {'Y', "burst_latency", no_argument,
     [](C& c, const char*) { c.run_latency = c.burst_latency = true; }},
    {'Z', "loaded_latency", no_argument, [](C& c, const char*) { c.run_loaded_latency = true; }},
    {'T', "bandwidth_local", no_argument,
     [](C& c, const char*) {
       c.run_bandwidth = true;
       c.bandwidth_local = 1;
     }},
    {'m', "mem_size", required_argument, set_mem_size, Reads::kSize},
    {'o', "output", required_argument, set_output},
    {'c', "chunk", required_argument, set_chunk},
    {'C', "cpunode", required_argument, set_cpunode, Reads::kNumber},
    {'M', "memnode", required_argument, set_memnode, Reads::kNumber},
    {'V', "verbose", required_argument, set_verbose, Reads::kNumber},
    {'s', "stride", required_argument, set_stride, Reads::kSize},
    {'i', "iter", required_argument, set_iter, Reads::kNumber},
    {'A', "auto", no_argument, [](C& c, const char*) { c.no_memnode = false; }},
    {'p', "physical", no_argument, nullptr},
    {'b', "base_addr", required_argument, nullptr},
    {'a', "basic_workload", no_argument, [](C& c, const char*) { c.basic_workload = true; }},
    {'r', "read", required_argument, set_read, Reads::kNumber},
    {'w', "write", required_argument, set_write, Reads::kNumber},
    {'n', "stream", no_argument, [](C& c, const char*) { c.stream = true; }},
    {'j', "thread", required_argument, set_thread, Reads::kNumber},
    {'F', "full", no_argument, [](C& c, const char*) { c.full = true; }},
    {'d', "delay", required_argument, set_delay, Reads::kNumber},
    {'D', "bw_delay", required_argument, set_bw_delay, Reads::kNumber},
    {'f', "devdax", required_argument, set_devdax},
    {'g', "pmem", required_argument, set_pmem},
    {'k', "latency_cpu", required_argument, set_latency_cpu, Reads::kNumber},
    {'l', "load_cpu", required_argument, set_load_cpu},
    {'z', "use_pa", optional_argument, set_use_pa, Reads::kNumber},
};

constexpr std::array<option, 40> make_long_options() {
  std::array<option, 40> table{};  // getopt stops at a row of zeros
  std::transform(std::begin(kRules), std::end(kRules), table.begin(), [](const OptionRule& rule) {
    return option{rule.name, rule.argument, nullptr, rule.letter};
  });
  return table;
}

std::string make_short_options() {
  std::string letters;
  for (const OptionRule& rule : kRules) {
    letters += rule.letter;
    letters.append(rule.argument, ':');  // no_argument 0, required 1, optional 2
  }
  return letters;
}

// The page for the first command on a command line that asks for help.
[[noreturn]] void print_help(const Configurator& c, int argc, char** argv) {
  optind = 0;  // getopt starts anew
  int letter = 0;
  do {
    letter = getopt_long(argc, argv, "hBLXYZT", Configurator::long_options.data(), nullptr);
  } while (letter == 'h');
  switch (letter) {
    case 'B':
      c.UsageBW();
      break;
    case 'L':
    case 'X':
    case 'Y':
      c.UsageLat();
      break;
    case 'T':
      c.UsageBWLocal();
      break;
    case 'Z':
      c.UsageLoadedLat();
      break;
    default:
      c.Usage();
  }
  end_printed();
}

}  // namespace

constinit const std::array<option, 40> Configurator::long_options = make_long_options();

void Configurator::ParseOptions(int argc, char** argv) {
  latency_cpu.cpu_id = -1;
  if (argc <= 1) {
    Usage();
    end_printed();
  }
  if (std::any_of(argv, argv + argc, [](const std::string_view argument) {
        return argument == "-h" || argument == "--help";
      })) {
    print_help(*this, argc, argv);
  }

  mem_info.Parse();
  numa_info.Parse();
  cpu_info.GetCpuInfo();

  const std::string letters = make_short_options();
  optind = 0;
  int letter = 0;
  while ((letter = getopt_long(argc, argv, letters.c_str(), long_options.data(), nullptr)) != -1) {
    const auto* rule =
        std::find_if(std::begin(kRules), std::end(kRules),
                     [letter](const OptionRule& candidate) { return candidate.letter == letter; });
    if (rule == std::end(kRules) || rule->accept == nullptr) {
      Fatal() << "Unsupported argument: " << static_cast<char>(letter) << '\n';
    }
    // Before a value is refused that is not the one on the command line.
    const bool converts = optarg != nullptr && is_number(optarg);
    if (converts) warn_of_ignored(*rule, optarg);
    rule->accept(*this, optarg);
    if (!converts) warn_of_ignored(*rule, optarg);
  }
  if (optind < argc) Fatal() << "Unsupported argument: " << argv[optind] << '\n';
}

}  // namespace velmo
