// The findings as a page for a browser.

#pragma once

#include <string>

#include "fleet/findings.h"

namespace velmo {

// A page as of report/page.h. Reads the surveys of slow hosts again, and those of some that are
// not, for their loaded curves.
std::string fleet_page(const Fleet& fleet, const Findings& findings);

}  // namespace velmo
