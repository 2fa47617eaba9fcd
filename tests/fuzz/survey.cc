// Surveys from any text: what is read is written as text that reads as the same.

#include "fuzz/harness.h"
#include "survey/record_json.h"

using velmo_fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  std::string once;
  try {
    once = velmo::survey_text(velmo::parse_survey(text, "fuzz"));
  } catch (const std::runtime_error& error) {
    Require(std::string(error.what()).starts_with("fuzz: "), "the survey is named");
    return 0;
  }
  Require(velmo::survey_text(velmo::parse_survey(once, "fuzz")) == once, "reads as it was written");
  return 0;
}
