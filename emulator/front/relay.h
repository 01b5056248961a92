#pragma once

#include "emulator/front/protocol.h"

#include <memory>

namespace orvane::front {

/// Passes the bytes on as they are, both ways.
class Relay : public Protocol {
  public:
    Relay(Wire& client, const Backend& backend) : client_(client), backend_(backend()) {}

    bool advance() override;
    End end() const override;

  private:
    Wire& client_;
    std::unique_ptr<Wire> backend_;
};

}  // namespace orvane::front
