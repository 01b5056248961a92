// The report as text.
#pragma once

#include "status/verdict.h"

#include <cstddef>
#include <string>

namespace orvane::status {

/// How the report looks.
struct Style {
    bool isColored = false;
    bool hasPicture = false;  ///< of the last 24 hours
    bool isPlain = false;     ///< units spelled out, nothing aligned, for screen readers
    std::size_t width = 0;    ///< in columns; 0 leaves lines whole
};

/// Several lines about one account; the last one is the verdict, with its reason and what to do.
/// Pure, but for the time zone.
std::string textReport(const Facts& facts, const Verdict& verdict, const Style& style);

/// One entry of a list of accounts.
std::string listEntry(const Facts& facts, const Verdict& verdict, const Style& style);

/// The verdict's line.
std::string verdictLine(const Verdict& verdict, const Style& style);

}  // namespace orvane::status
