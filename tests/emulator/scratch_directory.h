#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvane::emulator {

/// A directory for the time of a test.
class ScratchDirectory : public testing::Test {
  public:
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  protected:
    ScratchDirectory() {
        std::string name = testing::TempDir() + "emulator-XXXXXX";
        path_ = ::mkdtemp(name.data());
    }
    ~ScratchDirectory() override { std::filesystem::remove_all(path_); }

    std::filesystem::path write(const std::string& name, const std::string& content) const {
        std::ofstream(path_ / name) << content;
        return path_ / name;
    }

    std::filesystem::path path_;
};

}  // namespace orvane::emulator
