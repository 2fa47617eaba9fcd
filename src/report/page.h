// A page of HTML that is whole in itself: style, scripts, Chart.js and data are in it, and it asks
// for nothing from anywhere. Its body is empty; the scripts build it from the data.

#pragma once

#include <string>
#include <vector>

#include "survey/record.h"

namespace velmo {

struct Page {
  std::string title;
  // File names of scripts in src/report and src/fleet, in the order in which they run: behind
  // Chart.js and page.js, which every page has.
  std::vector<std::string> scripts;
  // What the scripts show, as velmo.data[0], [1], ... (see page.js).
  std::vector<Json> data;
};

// The page as UTF-8. Whatever stands in title and data is text there, never markup. Throws
// std::logic_error where a script of that name was not built in.
std::string page_text(const Page& page);

// exit(1) where `path` is a file that holds anything but a page of velmo: a survey in the place of
// the page is a slip of the hand.
void check_page_place(const std::string& path);

}  // namespace velmo
