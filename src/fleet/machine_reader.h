// Reads what a survey says of its machine: what makes hosts equals, and what may tell them apart.

#pragma once

#include <simdjson.h>

#include <string>

#include "fleet/host.h"

namespace velmo {

// What is not known stays 0 (an empty text). One for each survey. Throws simdjson_error.
class MachineReader {
 public:
  explicit MachineReader(TextPool& texts) : texts_(texts) {}

  void ReadVersion(simdjson::ondemand::object json, Host& host);
  void Read(simdjson::ondemand::object json, Host& host);

  // Writes what makes hosts equals: the machine, and `method`, how it was measured.
  void Finish(Host& host, const std::string& method);

 private:
  void ReadNodes(simdjson::ondemand::value json, Host& host);
  void ReadModules(simdjson::ondemand::value json, Host& host);
  void ReadProcessor(simdjson::ondemand::object json, Host& host);

  TextPool& texts_;
  std::string processor_;
  std::string sockets_;
  std::string cores_;
  std::string threads_;
  int nodes_without_cpus_ = 0;
};

}  // namespace velmo
