#include "survey/show_command.h"

#include <iostream>
#include <stdexcept>
#include <string>

#include "app/console.h"
#include "app/words.h"
#include "survey/record_json.h"
#include "survey/survey_report.h"

namespace velmo {

int run_show(int argc, char** argv) {
  CLI::App app("Prints the tables of a survey from its file.", "velmo show");
  std::string path;
  app.add_option("FILE", path, "Survey to print")->required();
  parse_word(app, argc, argv);
  try {
    write_survey(std::cout, read_survey(path));
  } catch (const std::runtime_error& failure) {
    Fatal() << failure.what() << '\n';
  }
  check_output();
  return 0;
}

}  // namespace velmo
