// The common ground of tests that run the daemon's code in process: a root directory, a clock that
// the test moves, and the log. Everything else is real.
#pragma once

#include "support/log_capture.h"
#include "support/test_files.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::test {

inline constexpr const char* pollPath = "/api/orvane/v1/connect/guard-config/";
inline constexpr const char* effectivePath = "/api/orvane/v1/guard/effective/";
inline constexpr const char* agentConfigPath = "/api/orvane/v1/endpoint/agent-config/";

class DaemonTest : public ::testing::Test {
  protected:
    DaemonTest();
    ~DaemonTest() override;

    [[nodiscard]] static std::filesystem::path root();
    /// ~/.orvane
    [[nodiscard]] static std::filesystem::path orvane() { return root() / "home/.orvane"; }
    /// The machine-wide setup directory.
    [[nodiscard]] static std::filesystem::path setup() {
        return root() / "private/tmp/dev.orvane.setup";
    }
    [[nodiscard]] static std::filesystem::path captureFile() {
        return setup() / "capture-policy.json";
    }
    [[nodiscard]] static std::filesystem::path activityFile() {
        return orvane() / "logs/policy-daemon.activity.jsonl";
    }

    /// Leaves a managed enrollment file.
    static void enroll(const std::string& apiUrl, const std::string& apiKey = "key-1");
    /// Leaves a device-identity file.
    static void identify(const std::string& apiUrl);
    /// Puts `script` where the hardware registry tool is, executable.
    static void installRegistryTool(std::string_view script);

    /// The activity log's lines, parsed.
    [[nodiscard]] static std::vector<nlohmann::json> activity();

    /// The messages logged at `level` so far.
    [[nodiscard]] std::vector<std::string> logged(const std::string& level) const;
    /// All messages logged so far, each after its level and a space.
    [[nodiscard]] std::vector<std::string> logLines() const;

    LogCapture log;
};

}  // namespace orvane::test
