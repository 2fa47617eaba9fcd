// Entry point: one run of velmo from the command line to the closing banner.

#include <ctime>
#include <iostream>
#include <string_view>

#include "app/console.h"
#include "app/log_file.h"
#include "app/signal_handler.h"
#include "app/threads.h"
#include "bandwidth/bandwidth.h"
#include "config/advice.h"
#include "config/configurator.h"
#include "latency/latency.h"
#include "loaded/loaded_latency.h"
#include "platform/prefetch.h"

#ifdef VELMO_SURVEY
#include "compare/compare_command.h"
#include "fleet/export_command.h"
#include "fleet/fleet_command.h"
#include "report/report_command.h"
#include "survey/show_command.h"
#include "survey/survey_command.h"
#endif

namespace {

#ifdef VELMO_SURVEY
// What a first argument that is a word runs, with the arguments from the word on; its status.
struct Word {
  std::string_view name;
  int (*run)(int argc, char** argv);
};

constexpr Word kWords[] = {
    {"report", velmo::run_report},   {"survey", velmo::run_survey}, {"show", velmo::run_show},
    {"compare", velmo::run_compare}, {"fleet", velmo::run_fleet},   {"export", velmo::run_export},
};
#endif

velmo::Configurator config;
velmo::Disturbances disturbances;

// Runs one benchmark on its own copy of the configuration. The time stamps around it are not
// reported.
template <typename Benchmark>
void run_benchmark() {
  Benchmark benchmark(config);
  timespec start;
  timespec end;
  clock_gettime(CLOCK_MONOTONIC, &start);
  benchmark.Run();
  clock_gettime(CLOCK_MONOTONIC, &end);
  disturbances.Add(benchmark.disturbances_);
}

}  // namespace

int main(int argc, char** argv) {
  velmo::init_console();
  velmo::install_exit_guards(velmo::restore_msr);
#ifdef VELMO_SURVEY
  for (const Word& word : kWords) {
    if (argc < 2 || word.name != argv[1]) continue;
    velmo::choose_prefixes();
    return word.run(argc - 1, argv + 1);
  }
#endif
  velmo::change_scheduling_priority(-20);
  config.InputArguments(argc, argv);
  velmo::check_root();
  // Who has read the banner meets the handlers.
  velmo::install_signal_handlers();
  std::cout << "\n***** VELMO START *****\n";

  velmo::tell_spoilers(config);

  if (config.run_bandwidth) run_benchmark<velmo::Bandwidth>();
  if (config.run_latency) run_benchmark<velmo::Latency>();
  if (config.run_loaded_latency) run_benchmark<velmo::LoadedLatency>();

  velmo::tell_disturbances(disturbances);
  std::cout << "\n\n***** DONE *****\n";
  velmo::check_output();
  return velmo::LogFile::any_lost() ? 1 : 0;
}
