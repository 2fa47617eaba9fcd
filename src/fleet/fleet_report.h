// The findings as lines of text, as JSON, and as a list of hosts for Slurm.

#pragma once

#include <ostream>
#include <string>

#include "fleet/findings.h"
#include "survey/record.h"

namespace velmo {

// A line each: the slow hosts, the worst first, what to survey again, what is missing, the groups.
void write_findings(std::ostream& out, const Fleet& fleet, const Findings& findings);

// Format "velmo-fleet", version 1.0 (docs/fleet.md).
Json findings_json(const Fleet& fleet, const Findings& findings);

// The names of the slow hosts as sbatch --exclude takes them, on one line. Names that are none of a
// host go to `refused`.
std::string exclude_list(const Fleet& fleet, const Findings& findings,
                         std::vector<std::string>& refused);

}  // namespace velmo
