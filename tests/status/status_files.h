// The files of an account whose daemon is well, for tests to spoil.
#pragma once

#include "support/rooted_paths.h"
#include "support/test_files.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

namespace orvane::test {

/// A line of the activity log for a poll that ended `ago` before now.
struct PollLine {
    std::chrono::seconds ago{0};
    int status = 304;
    std::int64_t milliseconds = 300123;
    std::string error{};
    std::string url = "https://control.example/api/orvane/v1/connect/guard-config/?wait=300";

    [[nodiscard]] std::string text() const;
};

/// Managed enrollment, a policy that was stored an hour ago and what is derived from it, and a good
/// poll 41 s ago, below a root directory of its own.
class StatusFiles {
  public:
    StatusFiles();

    [[nodiscard]] const std::filesystem::path& root() const { return root_; }
    [[nodiscard]] std::filesystem::path orvane() const { return root() / "home/.orvane"; }
    [[nodiscard]] std::filesystem::path setup() const {
        return root() / "private/tmp/dev.orvane.setup";
    }
    [[nodiscard]] std::filesystem::path log() const {
        return orvane() / "logs/policy-daemon.activity.jsonl";
    }

    /// Stores the policy with this ETag as if it had been received `ago` before now.
    void storePolicy(const std::string& tag, std::chrono::seconds ago) const;
    void enroll() const;
    /// Replaces the activity log.
    void writeLog(const std::vector<PollLine>& lines) const;
    void appendToLog(const std::string& text) const;
    static void setAge(const std::filesystem::path& file, std::chrono::seconds ago);

  private:
    TempDirectory directory_;
    std::filesystem::path root_;
};

}  // namespace orvane::test
