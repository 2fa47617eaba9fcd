#include "app/words.h"

#include <cstdlib>
#include <iostream>

#include "app/console.h"

namespace velmo {

void parse_word(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
    check_output();
    std::exit(EXIT_SUCCESS);
  } catch (const CLI::ParseError& failure) {
    Fatal() << failure.what() << ". See " << app.get_name() << " --help\n";
  }
}

}  // namespace velmo
