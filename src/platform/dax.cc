#include "platform/dax.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>

#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {

int64_t dax_alignment(const std::string& path, const std::string& devices) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode)) return 0;
  const std::string number =
      std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
  std::string text;
  if (!read_first_line(devices + "/" + number + "/align", text)) return 0;
  return std::max(leading_number(text).value_or(0), 0L);
}

}  // namespace velmo
