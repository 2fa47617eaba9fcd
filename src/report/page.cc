#include "report/page.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unordered_map>

#include "app/failure.h"
#include "report/embedded.h"

namespace velmo {
namespace {

struct Escape {
  std::string_view plain;
  std::string_view escaped;
};

constexpr Escape kMarkup[] = {{"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}};

// In JSON these stand in strings alone. The last two end a line for some readers of scripts.
constexpr Escape kScript[] = {{"<", "\\u003c"},
                              {">", "\\u003e"},
                              {"&", "\\u0026"},
                              {"\xe2\x80\xa8", "\\u2028"},
                              {"\xe2\x80\xa9", "\\u2029"}};

template <size_t N>
void append_escaped(std::string& out, std::string_view text, const Escape (&escapes)[N]) {
  while (!text.empty()) {
    const auto* const found = std::find_if(std::begin(escapes), std::end(escapes), [&](auto& e) {
      return text.substr(0, e.plain.size()) == e.plain;
    });
    const bool plain = found == std::end(escapes);
    out += plain ? text.substr(0, 1) : found->escaped;
    text.remove_prefix(plain ? 1 : found->plain.size());
  }
}

// The strings of a JSON text with their quotes, and what stands between them.
std::vector<std::string_view> pieces_of(std::string_view json) {
  std::vector<std::string_view> pieces;
  while (!json.empty()) {
    size_t end = 1;
    if (json.front() == '"') {
      while (json[end] != '"') end += json[end] == '\\' ? 2 : 1;
      ++end;
    } else {
      end = std::min(json.find('"'), json.size());
    }
    pieces.push_back(json.substr(0, end));
    json.remove_prefix(end);
  }
  return pieces;
}

// Names and reasons that repeat are half of a survey. What stands more than once goes into a list
// before the data, and its place in the list into the data: "$7". page.js undoes it.
void append_data(std::string& out, const Json& data) {
  constexpr size_t kWorthIt = 6;  // bytes of a string
  const std::string json = data.dump(-1, ' ', false, Json::error_handler_t::replace);
  const std::vector<std::string_view> pieces = pieces_of(json);
  std::unordered_map<std::string_view, int> counts;
  for (const std::string_view piece : pieces) ++counts[piece];
  std::unordered_map<std::string_view, size_t> places;
  std::string words;
  std::string packed;
  for (const std::string_view piece : pieces) {
    const bool repeats = piece.front() == '"' && piece.size() >= kWorthIt && counts[piece] > 1;
    if (!repeats && !piece.starts_with("\"$")) {
      packed += piece;
      continue;
    }
    const auto [place, is_new] = places.try_emplace(piece, places.size());
    if (is_new) (words += words.empty() ? "" : ",") += piece;
    packed += "\"$" + std::to_string(place->second) + '"';
  }
  out += R"(<script type="application/json">[)";
  append_escaped(out, words, kScript);
  out += "]</script>\n<script type=\"application/json\" class=\"data\">";
  append_escaped(out, packed, kScript);
  out += "</script>\n";
}

std::string_view embedded_text(std::string_view name) {
  for (const EmbeddedFile& file : embedded_files()) {
    if (file.name == name) return file.text;
  }
  throw std::logic_error("not built into velmo: " + std::string(name));
}

constexpr std::string_view kGenerator = R"(<meta name="generator" content="velmo">)";
constexpr size_t kGeneratorWithin = 300;  // bytes at the start of a page
// The policy refuses every request, should a browser think of one.
constexpr char kHead[] = R"(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="generator" content="velmo">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; )"
                         R"(style-src 'unsafe-inline'; script-src 'unsafe-inline'; base-uri 'none'">
<meta name="color-scheme" content="light dark">
<link rel="icon" href="data:,">
<title>)";

constexpr char kBody[] = R"(</style>
</head>
<body>
<noscript>This page is drawn by a script in it, which the browser does not run.</noscript>
<main></main>
)";

}  // namespace

std::string page_text(const Page& page) {
  std::string out = kHead;
  append_escaped(out, page.title, kMarkup);
  out += "</title>\n<style>\n";
  out += embedded_text("page.css");
  out += kBody;
  for (const Json& data : page.data) append_data(out, data);
  std::vector<std::string> scripts = {"chart.min.js", "page.js"};
  scripts.insert(scripts.end(), page.scripts.begin(), page.scripts.end());
  for (const std::string& name : scripts) {
    out += "<script>\n";
    out += embedded_text(name);
    out += "</script>\n";
  }
  return out += "</body>\n</html>\n";
}

void check_page_place(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return;  // a pipe would be waited for
  std::ifstream in(path);
  std::string start(kGeneratorWithin, '\0');
  in.read(start.data(), static_cast<std::streamsize>(start.size()));
  start.resize(static_cast<size_t>(in.gcount()));
  if (!start.empty() && start.find(kGenerator) == std::string::npos) {
    Fatal() << path << " exists and is no page of velmo. Name another file, or remove it\n";
  }
}

}  // namespace velmo
