#include "fleet/export_command.h"

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/console.h"
#include "app/new_file.h"
#include "app/words.h"
#include "fleet/prometheus.h"
#include "survey/record_json.h"

namespace velmo {

int run_export(int argc, char** argv) {
  CLI::App app("Writes surveys for other programs to read.", "velmo export");
  std::vector<std::string> paths;
  std::string output;
  bool prometheus = false;
  app.add_flag("--prometheus", prometheus, "As metrics for the textfile collector of node_exporter")
      ->required();
  app.add_option("FILE", paths, "Surveys; of several of one host the newest counts")->required();
  app.add_option("-o", output, "File to write in place of standard output");
  parse_word(app, argc, argv);
  std::string text;
  try {
    std::vector<Survey> surveys;
    for (const std::string& path : paths) surveys.push_back(read_survey(path));
    text = prometheus_text(std::move(surveys));
  } catch (const std::runtime_error& failure) {
    Fatal() << failure.what() << '\n';
  }
  if (output.empty()) {
    std::cout << text;
    check_output();
  } else if (const std::string failure = replace_file(output, text); !failure.empty()) {
    Fatal() << failure << '\n';
  }
  return 0;
}

}  // namespace velmo
