#pragma once

#include "emulator/front/wire.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace orvane::front {

/// Connects to the backend; null when that is not possible.
using Backend = std::function<std::unique_ptr<Wire>()>;

/// Whether a client's connection is to be closed.
enum class End : std::uint8_t {
    none,
    orderly,  ///< What has been sent is all there is.
    abrupt    ///< As if the line were cut.
};

/// What is spoken with one client.
class Protocol {
  public:
    Protocol() = default;
    virtual ~Protocol() = default;
    Protocol(const Protocol&) = delete;
    Protocol& operator=(const Protocol&) = delete;

    /// Does what can be done without waiting. True if that is anything.
    virtual bool advance() = 0;
    virtual End end() const = 0;
};

}  // namespace orvane::front
