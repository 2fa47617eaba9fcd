// A survey as JSON: format "velmo-survey", version 1.0 (docs/survey.schema.json).

#pragma once

#include <string>

#include "survey/record.h"

namespace velmo {

Json to_json(const Survey& survey);
Json to_json(const Cell& cell);

// A repeat alone is what a measuring process hands to its parent.
Json to_json(const Repeat& repeat);
Repeat repeat_from_json(const Json& json);

// The text of a survey's file.
std::string survey_text(const Survey& survey);

// The survey in `text`. Throws std::runtime_error that says what is wrong, behind `name`: no JSON,
// cut, another format, another version, a member that is missing or of another type. A later minor
// version of the format is accepted. Control characters of its texts are replaced (printable).
Survey parse_survey(const std::string& text, const std::string& name);

// The text of the file at `path`. Throws std::runtime_error where it cannot be read.
std::string survey_file_text(const std::string& path);

// The survey in the file at `path`; std::runtime_error as of the two above.
Survey read_survey(const std::string& path);

}  // namespace velmo
