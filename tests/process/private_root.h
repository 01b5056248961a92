// A root directory of its own for the real daemon, whose paths are fixed: the machine's programs
// and libraries, but home, setup directory, trust store and hardware registry tool are the test's.
#pragma once

#include "process/daemon_process.h"
#include "support/test_files.h"

#include <filesystem>
#include <string>

namespace orvane::test {

class PrivateRoot {
  public:
    PrivateRoot();

    /// Why no such root can be had here; empty when one can.
    static std::string obstacle();

    [[nodiscard]] const std::filesystem::path& path() const { return directory_.path(); }
    /// The account's home; HOME says something else.
    [[nodiscard]] std::filesystem::path home() const { return path() / "home/agent"; }
    [[nodiscard]] std::filesystem::path setup() const {
        return path() / "private/tmp/dev.orvane.setup";
    }

    /// How to start `program` in it.
    [[nodiscard]] DaemonSetup daemon(const std::filesystem::path& program) const;

  private:
    TempDirectory directory_;
};

}  // namespace orvane::test
