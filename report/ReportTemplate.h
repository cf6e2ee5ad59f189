// The template of a report's page, in two pieces around the data, as the build makes them of
// report.html, report.css and report.js.
#pragma once

#include <string_view>

namespace Agent {

extern const std::string_view reportBeforeData;
extern const std::string_view reportAfterData;

} // namespace Agent
