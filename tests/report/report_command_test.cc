#include "report/report_command.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>

#include "report/page.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

using velmo_test::Error;
using velmo_test::Outcome;
using velmo_test::RunForked;
using velmo_test::TempDir;

constexpr char kSurvey[] =
    R"({"format": "velmo-survey", "format_version": "1.7", "velmo": {"version": "3"},
        "run": {"host": "a", "started": "", "ended": "", "arguments": [],
                "seed": 18446744073709551615, "state": "complete"},
        "machine": {"new": "</script>"}, "cells": []})";

Outcome report(std::string file, std::string page) {
  return RunForked([&] {
    std::array<char*, 4> argv = {const_cast<char*>("report"), file.data(), const_cast<char*>("-o"),
                                 page.data()};
    run_report(argv.size(), argv.data());
  });
}

// The text of the data in a page, which is all that may stand between these tags.
std::string data_of(const std::string& page) {
  const std::string begin = "class=\"data\">";
  const size_t start = page.find(begin) + begin.size();
  return page.substr(start, page.find("</script>", start) - start);
}

TEST(Report, HoldsTheSurveyAndNoMarkupOfIt) {
  const TempDir dir;
  const std::string page = dir.path() + "/page.html";
  EXPECT_EQ(report(dir.Write("good", kSurvey), page), (Outcome{0, page + '\n', ""}));
  EXPECT_EQ(Json::parse(data_of(velmo_test::ReadAll(page))), Json::parse(kSurvey));

  const Json data = "\"</script>\\<!--&\xe2\x80\xa8";
  const std::string text = page_text({.title = "</title>&", .scripts = {}, .data = {data}});
  EXPECT_EQ(data_of(text), R"("\"\u003c/script\u003e\\\u003c!--\u0026\u2028")");
  EXPECT_NE(text.find("<title>&lt;/title&gt;&amp;</title>"), std::string::npos);
  EXPECT_THROW(page_text({.title = "", .scripts = {"none.js"}, .data = {}}), std::logic_error);
}

TEST(Report, WhatIsNoSurveyIsNamedAndThePageKept) {
  const TempDir dir;
  const std::string before = page_text({}).substr(0, 300) + "before";
  const std::string page = dir.Write("page.html", before);
  const std::string cut = dir.Write("cut", std::string(kSurvey).substr(0, 99));
  const std::string other = dir.Write("other", "{}");
  const std::string deep = dir.Write("deep", std::string(99, '['));
  const std::string bell = dir.Write("bell", "{\"a\\u0007\": 1}");
  const std::string missing = dir.path() + "/missing";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {cut, cut + ": no survey: not JSON, or cut short"},
      {other, other + ": no survey that can be read: not a survey of velmo"},
      {deep, deep + ": no survey that can be read: it is nested too deep"},
      {bell,
       bell + ": no survey that can be read: the name of a member holds control characters: a?"},
      {missing, "Failed to read " + missing + ": No such file or directory"},
      {dir.path(), "Failed to read " + dir.path() + ": Is a directory"},
  };
  for (const auto& [file, message] : cases) {
    EXPECT_EQ(report(file, page), (Outcome{1, "", Error(message)}));
  }
  const std::string good = dir.Write("good", kSurvey);
  const std::string pipe = dir.path() + "/pipe";
  const std::string link = dir.path() + "/link";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::filesystem::create_symlink(pipe, link);
  for (const std::string& at : {dir.path(), pipe, link}) {
    const std::string message = "Failed to write " + at + ": it exists and is not a regular file";
    EXPECT_EQ(report(good, at), (Outcome{1, "", Error(message)}));
  }
  const std::string mine = dir.Write("mine.html", "<!doctype html>\n<p>velmo");
  for (const std::string& at : {good, mine}) {
    const std::string text = velmo_test::ReadAll(at);
    const std::string message = " exists and is no page of velmo. Name another file, or remove it";
    EXPECT_EQ(report(good, at), (Outcome{1, "", Error(at + message)}));
    EXPECT_EQ(velmo_test::ReadAll(at), text);
  }
  EXPECT_EQ(report(good, "-").out.substr(0, 15), "<!doctype html>");
  EXPECT_EQ(velmo_test::ReadAll(page), before);
  EXPECT_EQ(report(good, page).status, 0);
}

}  // namespace
}  // namespace velmo
