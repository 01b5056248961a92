#pragma once

#include "emulator/exchange.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvane::emulator {

/// An exchange as a JSON object in one line, without a line feed. Pure.
std::string recordLine(const Exchange& exchange, std::chrono::system_clock::time_point at);

/// A file that gets a line for every exchange. Not thread-safe.
class Record {
  public:
    /// Opens `file` to append to it. Throws BadInput when it cannot be written.
    explicit Record(const std::filesystem::path& file);

    /// False when the line could not be written.
    bool add(const Exchange& exchange);

  private:
    std::ofstream file_;
};

}  // namespace orvane::emulator
