#include "status/status_files.h"

#include "platform/text/timestamp.h"

#include <nlohmann/json.hpp>

#include <fstream>

namespace orvane::test {

namespace fs = std::filesystem;

std::string PollLine::text() const {
    const auto endedAt = std::chrono::system_clock::now().time_since_epoch() - ago;
    nlohmann::json line{{"bytes", 0},      {"daemon", "policy-daemon"},
                        {"method", "GET"}, {"ms", milliseconds},
                        {"pid", 4711},     {"status", status},
                        {"url", url},      {"ts", iso8601(std::chrono::nanoseconds(endedAt))}};
    if (!error.empty()) {
        line["error"] = error;
    }
    return line.dump() + "\n";
}

StatusFiles::StatusFiles() : root_(directory_.path() / "root") {
    rooted_paths::setRoot(root_);
    enroll();
    storePolicy("demo-9", std::chrono::hours(1));
    writeFile(setup() / "capture-policy.json",
              R"({"enabled":true,"intercept_hosts":["a.example"],"suppress_ech":false})");
    for (const fs::path& each : {setup(), setup() / "capture-policy.json"}) {
        fs::permissions(each, fs::perms(0755));
    }
    writeLog({{std::chrono::seconds(341)}, {std::chrono::seconds(41)}});
}

void StatusFiles::storePolicy(const std::string& tag, std::chrono::seconds ago) const {
    const nlohmann::json capture{
        {"enabled", true}, {"hosts", {"a.example"}}, {"suppress_ech", false}};
    writeFile(orvane() / "policy.json",
              nlohmann::json{{"etag", tag}, {"guard_config", {{"capture", capture}}}}.dump());
    writeFile(orvane() / "policy-etag.json", nlohmann::json{{"etag", tag}}.dump());
    setAge(orvane() / "policy.json", ago);
}

void StatusFiles::enroll() const {
    writeFile(setup() / "enroll-config.json",
              R"({"api_url": "https://control.example", "api_key": "key-1"})");
}

void StatusFiles::writeLog(const std::vector<PollLine>& lines) const {
    std::string text;
    for (const PollLine& line : lines) {
        text += line.text();
    }
    writeFile(log(), text);
}

void StatusFiles::appendToLog(const std::string& text) const {
    std::ofstream(log(), std::ios::app) << text;
}

void StatusFiles::setAge(const fs::path& file, std::chrono::seconds ago) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - ago);
}

}  // namespace orvane::test
