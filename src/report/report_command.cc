#include "report/report_command.h"

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/console.h"
#include "app/new_file.h"
#include "app/words.h"
#include "report/page.h"
#include "survey/record_json.h"

namespace velmo {
namespace {

Page report_of(const std::vector<std::string>& paths) {
  Page page = {.title = "velmo: " + std::to_string(paths.size()) + " surveys",
               .scripts = {"report_model.js", "report_tables.js", "report_matrix.js",
                           "report_charts.js", "report_curves.js", "report.js"},
               .data = {}};
  for (const std::string& path : paths) {
    const std::string text = survey_file_text(path);
    const Survey survey = parse_survey(text, path);
    if (paths.size() == 1) page.title = "velmo: " + survey.host;
    // As the file has it: what this version does not know is saved from the page too.
    page.data.push_back(Json::parse(text));
  }
  return page;
}

}  // namespace

int run_report(int argc, char** argv) {
  CLI::App app("Writes one page for a browser, which shows surveys and holds them.",
               "velmo report");
  std::vector<std::string> paths;
  std::string output = "report.html";
  app.add_option("FILE", paths, "Surveys to show, over each other")->required();
  app.add_option("-o", output, "File of the page; - is standard output")->capture_default_str();
  parse_word(app, argc, argv);
  const bool piped = output == "-";
  if (!piped) check_page_place(output);
  try {
    const std::string page = page_text(report_of(paths));
    const std::string failure = piped ? "" : replace_file(output, page);
    if (!failure.empty()) Fatal() << failure << '\n';
    std::cout << (piped ? page : output + '\n');
  } catch (const std::runtime_error& failure) {
    Fatal() << failure.what() << '\n';
  }
  check_output();
  return 0;
}

}  // namespace velmo
