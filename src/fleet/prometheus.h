// Surveys as metrics of Prometheus, in the text format that node_exporter's textfile collector
// reads.

#pragma once

#include <string>
#include <vector>

#include "survey/record.h"

namespace velmo {

// The metrics of `surveys`, in base units, with HELP and TYPE and without time stamps. Of several
// surveys of one host the newest counts; where there are several hosts, every metric has the label
// "host". Figures of cells that failed or are disturbed are left out; velmo_survey_cells counts
// these.
std::string prometheus_text(std::vector<Survey> surveys);

}  // namespace velmo
