#include "config/configurator.h"

#include <algorithm>
#include <iostream>

namespace velmo {

void Configurator::InputArguments(int argc, char** argv) {
  ParseOptions(argc, argv);
  CheckOptions();
  // From here on every floating value on the console has two decimals.
  std::cout << std::fixed;
  std::cout.precision(2);
  ClockTest();
  if (!cpu_info.WantsAwakeNodes()) node_spinners = false;
}

bool Configurator::HasCpus(int node) const {
  return node >= 0 && static_cast<size_t>(node) < node_cpus.size() && !node_cpus[node].empty();
}

const NumaInfo::cpu_ctx& Configurator::MeasuringCpu(int node) const {
  return measuring_cpu(node_cpus[node]);
}

}  // namespace velmo
