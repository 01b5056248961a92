#include "status/status_page.h"

#include "support/test_files.h"

#include <regex>
#include <sstream>
#include <stdexcept>

namespace orvane::test {

namespace {

/// All that the group of `pattern` matches in `text`.
std::vector<std::string> matchesIn(const std::string& text, const char* pattern) {
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
         ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

}  // namespace

std::vector<std::vector<std::string>> tableRows(const std::string& heading) {
    const std::string page = readFile(ORVANE_STATUS_PAGE);
    const auto start = page.find("\n## " + heading + "\n");
    if (start == std::string::npos) {
        throw std::runtime_error("docs/status.md has no section " + heading);
    }
    std::istringstream section(page.substr(start, page.find("\n## ", start + 1) - start));
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(section, line);) {
        if (line.starts_with("| ")) {
            rows.push_back(matchesIn(line.substr(1), " ([^|]*?) ?\\|"));
        }
    }
    return rows;
}

std::vector<std::string> codeIn(const std::string& cell) {
    return matchesIn(cell, "`([^`]*)`");
}

}  // namespace orvane::test
