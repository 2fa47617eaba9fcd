# What the words of the command line (survey, show, report, compare, fleet, export) need beyond the
# classic program.

find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)

target_link_libraries(velmo_core PUBLIC CLI11::CLI11 nlohmann_json::nlohmann_json)
target_compile_definitions(velmo_core PUBLIC VELMO_SURVEY)
