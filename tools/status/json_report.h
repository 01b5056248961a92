// The report for programs, as JSON; docs/status.md describes its members.
#pragma once

#include "status/verdict.h"

#include <string>

namespace orvane::status {

/// One object in one line. What is not known is left out. Pure.
std::string jsonReport(const Facts& facts, const Verdict& verdict);

}  // namespace orvane::status
