#include "activity/activity_log.h"

#include "platform/files/files.h"
#include "platform/json/json_writer.h"
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

void ActivityLog::record(const Exchange& exchange) noexcept {
    try {
        const std::string timestamp = iso8601(clock::sinceEpoch());
        std::vector<json::Field> members{{"ts", timestamp},
                                         {"daemon", "policy-daemon"},
                                         {"pid", std::int64_t{processId()}},
                                         {"method", exchange.method},
                                         {"url", exchange.url},
                                         {"status", exchange.status},
                                         {"ms", exchange.ms},
                                         {"bytes", exchange.bytes}};
        if (!exchange.summary.empty()) {
            members.push_back({"summary", exchange.summary});
        }
        if (!exchange.error.empty()) {
            members.push_back({"error", exchange.error});
        }
        appendToLog(json::writeObject(members));
    } catch (...) {  // NOLINT(bugprone-empty-catch): losing a line must not fail the exchange
    }
}

}  // namespace orvane
