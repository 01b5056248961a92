// An HTTP/2 server before a scripted one: the front end that the local control plane has.
#pragma once

#include "emulator/front/front.h"
#include "support/scripted_server.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orvane::test {

class H2Front {
  public:
    /// Passes what comes in over TLS with `identity` on to `backend`.
    H2Front(const TlsIdentity& identity, const ScriptedServer& backend);

    /// "https://localhost:PORT"
    [[nodiscard]] std::string url() const;

  private:
    std::uint16_t port_ = 0;
    std::optional<front::Front> front_;
};

}  // namespace orvane::test
