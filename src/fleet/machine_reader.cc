#include "fleet/machine_reader.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "app/table.h"

namespace velmo {
namespace {

using simdjson::ondemand::field;
using simdjson::ondemand::json_type;
using simdjson::ondemand::object;
using simdjson::ondemand::value;

// A text as it is, a number as its digits; empty for what is not known: null, or an object that
// gives the reason.
std::string text_of(value json) {
  switch (json.type()) {
    case json_type::string:
      return std::string(std::string_view(json));
    case json_type::number:
    case json_type::boolean: {
      const std::string_view token = json.raw_json_token();
      return std::string(token.substr(0, token.find_last_not_of(" \t\r\n") + 1));
    }
    default:
      return {};
  }
}

// A line "name\ttext" for each member that is known.
std::string texts_of(object json) {
  std::string all;
  for (field member : json) {
    const std::string name(std::string_view(member.unescaped_key()));
    const std::string text = text_of(member.value());
    if (!text.empty()) all += name + '\t' + text + '\n';
  }
  return all;
}

bool is_object(value json) { return json.type() == json_type::object; }
bool is_array(value json) { return json.type() == json_type::array; }

double number_of(const std::string& text) {
  return text.empty() ? 0 : std::strtod(text.c_str(), nullptr);
}

}  // namespace

void MachineReader::ReadVersion(object json, Host& host) {
  for (field member : json) {
    if (std::string_view(member.unescaped_key()) == "version") {
      host.properties[kVelmoVersion] = texts_.number(text_of(member.value()));
    }
  }
}

void MachineReader::ReadProcessor(object json, Host& host) {
  for (field member : json) {
    const std::string_view name = member.unescaped_key();
    if (name == "name") processor_ = text_of(member.value());
    if (name == "microcode") host.properties[kMicrocode] = texts_.number(text_of(member.value()));
  }
}

void MachineReader::ReadNodes(value json, Host& host) {
  if (!is_array(json)) return;
  std::map<double, double> bytes;  // by node number
  for (object node : json.get_array()) {
    double number = 0;
    double size = 0;
    for (field member : node) {
      const std::string_view name = member.unescaped_key();
      if (name == "node") number = number_of(text_of(member.value()));
      if (name == "size_bytes") size = number_of(text_of(member.value()));
      if (name == "type" && text_of(member.value()) == "without CPUs") ++nodes_without_cpus_;
    }
    bytes[number] = size;
  }
  for (const auto& [number, size] : bytes) host.node_bytes.push_back(size);
}

void MachineReader::ReadModules(value json, Host& host) {
  if (!is_array(json)) return;
  std::string all;
  for (object module : json.get_array()) {
    std::string locator;
    std::string size;
    std::string speed;
    std::string configured;
    for (field member : module) {
      const std::string_view name = member.unescaped_key();
      if (name == "locator") locator = text_of(member.value());
      if (name == "size_bytes") size = text_of(member.value());
      if (name == "speed_mt_s") speed = text_of(member.value());
      if (name == "configured_speed_mt_s") configured = text_of(member.value());
    }
    if (number_of(size) == 0) continue;
    // A module that runs below what it could slows its host as much as a slower one.
    if (!configured.empty()) speed = configured;
    if (!speed.empty()) speed = " at " + speed + " MT/s";
    constexpr double kGiB = 1U << 30;
    all += locator + '\t' + fixed_text(number_of(size) / kGiB, 0) + " GiB" + speed + '\n';
  }
  host.properties[kModules] = texts_.number(all);
}

void MachineReader::Read(object json, Host& host) {
  constexpr struct {
    std::string_view object;
    std::string_view member;
    Property property;
  } kTexts[] = {{"kernel", "release", kKernel},
                {"firmware", "version", kFirmware},
                {"frequency", "governor", kGovernor},
                {"frequency", "max_hz", kLargestClock},
                {"huge_pages", "transparent", kTransparentHugePages}};
  for (field top : json) {
    const std::string_view name = top.unescaped_key();
    value content = top.value();
    if (name == "sockets") sockets_ = text_of(content);
    if (name == "cores") cores_ = text_of(content);
    if (name == "threads") threads_ = text_of(content);
    if (name == "nodes") ReadNodes(content, host);
    if (name == "memory_modules") ReadModules(content, host);
    if (name == "numa_balancing") {
      host.properties[kNumaBalancing] = texts_.number(text_of(content));
    }
    if (name == "hypervisor") host.properties[kHypervisor] = texts_.number(text_of(content));
    if (!is_object(content)) continue;
    if (name == "processor") ReadProcessor(content, host);
    if (name == "limits") host.properties[kLimits] = texts_.number(texts_of(content));
    if (name == "mitigations") host.properties[kMitigations] = texts_.number(texts_of(content));
    const bool wanted = std::any_of(std::begin(kTexts), std::end(kTexts),
                                    [name](auto& text) { return text.object == name; });
    if (!wanted) continue;
    for (field member : content.get_object()) {
      const std::string_view inner = member.unescaped_key();
      for (const auto& text : kTexts) {
        if (text.object == name && text.member == inner) {
          host.properties[text.property] = texts_.number(text_of(member.value()));
        }
      }
    }
  }
}

void MachineReader::Finish(Host& host, const std::string& method) {
  if (!threads_.empty()) {
    host.properties[kCpus] = texts_.number(cores_ + " cores, " + threads_ + " threads");
  }
  std::string equals = processor_.empty() ? "unknown processor" : processor_;
  equals += ", " + (sockets_.empty() ? "?" : sockets_) + " sockets, " +
            std::to_string(host.node_bytes.size()) + " nodes";
  if (nodes_without_cpus_ > 0) {
    equals += " (" + std::to_string(nodes_without_cpus_) + " without CPUs)";
  }
  if (!method.empty()) equals += "; " + method;
  host.equals = texts_.number(equals);
}

}  // namespace velmo
