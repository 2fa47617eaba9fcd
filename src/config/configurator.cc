#include "config/configurator.h"

#include <iostream>

namespace velmo {

void Configurator::InputArguments(int argc, char** argv) {
  const GivenOptions given = ParseOptions(argc, argv);
  CheckOptions(given);
  // From here on every floating value on the console has two decimals.
  std::cout << std::fixed;
  std::cout.precision(2);
  ClockTest();

  // Sapphire/Emerald Rapids up to this stepping measure without the spinning threads.
  constexpr int32_t kModelWithoutSpinners = 0xCF;
  if (cpu_info.model == kModelWithoutSpinners && cpu_info.stepping <= 2) node_spinners = false;
}

}  // namespace velmo
