#include "activity/activity_log.h"

#include "platform/files/files.h"
#include "platform/json/json.h"
#include "platform/machine/clock.h"
#include "platform/machine/paths.h"
#include "platform/process/environment.h"
#include "platform/text/timestamp.h"

#include <filesystem>
#include <tuple>
#include <vector>

namespace orvane {

namespace {

std::filesystem::path logFile() {
    return paths::logDirectory() / "policy-daemon.activity.jsonl";
}

void appendToLog(const std::string& line) {
    const auto file = logFile();
    std::ignore = files::createDirectories(file.parent_path());
    if (!files::appendLine(file, line)) {
        std::ignore = files::writeAtomically(file, line + '\n');
    }
}

}  // namespace

void ActivityLog::record(std::string_view method, std::string_view url, std::int64_t status,
                         std::int64_t ms, std::int64_t bytes, std::string_view summary,
                         const std::optional<std::string>& error) noexcept {
    try {
        const std::string timestamp = iso8601(clock::sinceEpoch());
        std::vector<json::Member> members{{"ts", timestamp},
                                          {"daemon", "policy-daemon"},
                                          {"pid", std::int64_t{processId()}},
                                          {"method", method},
                                          {"url", url},
                                          {"status", status},
                                          {"ms", ms},
                                          {"bytes", bytes}};
        if (!summary.empty()) {
            members.push_back({"summary", summary});
        }
        if (error && !error->empty()) {
            members.push_back({"error", *error});
        }
        appendToLog(json::writeObject(members));
    } catch (...) {  // NOLINT(bugprone-empty-catch): a lost line must not fail the exchange
    }
}

}  // namespace orvane
