// The common ground of tests that run the daemon as it ships, with its fixed paths, in a root
// directory of its own.
#pragma once

#include "process/daemon_process.h"
#include "process/private_root.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <cstdlib>

namespace orvane::test {

class PrivateRootTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string obstacle = PrivateRoot::obstacle();
        if (!obstacle.empty()) {
            const bool mustRun = std::getenv("CI") != nullptr && ::geteuid() == 0;
            ASSERT_FALSE(mustRun) << obstacle;
            GTEST_SKIP() << obstacle;
        }
    }

    /// Leaves a managed enrollment file.
    void enroll(const std::string& apiUrl) const {
        writeFile(root.setup() / "enroll-config.json",
                  nlohmann::json{{"api_url", apiUrl}, {"api_key", "key-1"}}.dump());
    }
    /// ~/.orvane
    [[nodiscard]] std::filesystem::path orvane() const { return root.home() / ".orvane"; }
    /// The daemon as it ships.
    [[nodiscard]] DaemonSetup daemon() const { return root.daemon(ORVANE_DAEMON); }

    PrivateRoot root;
};

}  // namespace orvane::test
