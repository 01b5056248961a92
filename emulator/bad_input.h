#pragma once

#include <stdexcept>

namespace orvane::emulator {

/// Something a user gave that cannot be used. what() is one line without a period at its end: what
/// is wrong and, where that is not plain, what to do.
class BadInput : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace orvane::emulator
