// The tables of docs/status.md, for tests to compare with what the program says.
#pragma once

#include <string>
#include <vector>

namespace orvane::test {

/// The rows of the tables in the section of this heading, each with its cells; those of the header
/// included.
std::vector<std::vector<std::string>> tableRows(const std::string& heading);

/// All `words` in code style in a cell.
std::vector<std::string> codeIn(const std::string& cell);

}  // namespace orvane::test
