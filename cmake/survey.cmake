# What the words of the command line (survey, show, report, compare, fleet, export) need beyond the
# classic program.

find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(simdjson REQUIRED)
find_path(BOOST_INCLUDE_DIR boost/math/distributions/students_t.hpp REQUIRED)

target_link_libraries(velmo_core PUBLIC CLI11::CLI11 nlohmann_json::nlohmann_json)
target_link_libraries(velmo_core PRIVATE simdjson::simdjson)
target_compile_definitions(velmo_core PUBLIC VELMO_SURVEY)
# Distributions of doubles need no long double, whose tables valgrind cannot set up.
set_source_files_properties(src/compare/contrast.cc src/fleet/threshold.cc PROPERTIES
  COMPILE_DEFINITIONS BOOST_MATH_PROMOTE_DOUBLE_POLICY=false)

# Scripts and styles of the pages become a source file: one raw string each. They stand inside
# <script> and <style>, so none may hold the text that ends these.
find_file(VELMO_CHART_JS chart.min.js PATHS /usr/share/javascript/chart.js REQUIRED
  NO_CMAKE_FIND_ROOT_PATH)
file(GLOB VELMO_PAGE_FILES CONFIGURE_DEPENDS src/report/*.js src/report/*.css src/fleet/*.js)
set(embedded)
foreach(path ${VELMO_CHART_JS} ${VELMO_PAGE_FILES})
  file(READ ${path} text)
  if(text MATCHES "</s(cript|tyle)|\\)velmo-embedded\"")
    message(FATAL_ERROR "${path} cannot be put into a page as it is: it holds ${CMAKE_MATCH_0}")
  endif()
  get_filename_component(name ${path} NAME)
  string(APPEND embedded "    {\"${name}\", R\"velmo-embedded(${text})velmo-embedded\"},\n")
endforeach()
set_property(DIRECTORY APPEND PROPERTY
  CMAKE_CONFIGURE_DEPENDS ${VELMO_CHART_JS} ${VELMO_PAGE_FILES})
file(CONFIGURE OUTPUT embedded.cc @ONLY CONTENT [[
#include "report/embedded.h"

namespace velmo {
namespace {
constexpr EmbeddedFile kFiles[] = {
@embedded@};
}  // namespace

std::span<const EmbeddedFile> embedded_files() { return kFiles; }

}  // namespace velmo
]])
target_sources(velmo_core PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/embedded.cc)

# The commit that is built; empty outside a checkout of this repository. The log of HEAD changes with
# every commit and checkout, and has CMake run again.
set(VELMO_COMMIT "")
find_package(Git QUIET)
if(Git_FOUND)
  execute_process(
    COMMAND ${GIT_EXECUTABLE} rev-parse --show-toplevel HEAD --git-path logs/HEAD
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE lines ERROR_QUIET)
  string(REGEX MATCHALL "[^\n]+" lines "${lines}")
  list(LENGTH lines count)
  if(count EQUAL 3)
    list(GET lines 0 top)
    file(REAL_PATH "${top}" top)
    file(REAL_PATH "${PROJECT_SOURCE_DIR}" source)
    if(top STREQUAL source)
      list(GET lines 1 VELMO_COMMIT)
      list(GET lines 2 log)
      get_filename_component(log "${log}" ABSOLUTE BASE_DIR "${PROJECT_SOURCE_DIR}")
      if(EXISTS "${log}")
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${log}")
      endif()
    endif()
  endif()
endif()
set_source_files_properties(src/survey/commit.cc
  PROPERTIES COMPILE_DEFINITIONS VELMO_COMMIT="${VELMO_COMMIT}")

target_include_directories(velmo_core SYSTEM PRIVATE ${BOOST_INCLUDE_DIR})
