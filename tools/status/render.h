// Reports in the format that the command line asks for.
#pragma once

#include "status/all_accounts.h"
#include "status/arguments.h"
#include "status/text_report.h"

#include <string>
#include <vector>

namespace orvane::status {

/// How the text report looks on a terminal with so many columns (0: there is none), by the
/// arguments and the environment (NO_COLOR, TERM and the variables for the locale).
Style styleFor(const Arguments& arguments, std::size_t terminalWidth);

/// One account's part of the output.
std::string render(const Facts& facts, const Verdict& verdict, const Arguments& arguments,
                   const Style& style);

/// The whole output for `parts`: one account's or, with --all, those of `reports`.
std::string output(const std::string& part, const Arguments& arguments);
std::string outputForAll(const std::vector<AccountReport>& reports, const Arguments& arguments,
                         const Style& style);

}  // namespace orvane::status
