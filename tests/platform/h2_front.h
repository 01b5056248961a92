// An HTTP/2 server before a scripted one: the nghttpx proxy, which speaks TLS and chooses "h2".
#pragma once

#include "support/scripted_server.h"
#include "support/test_files.h"

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace orvane::test {

class H2Front {
  public:
    /// Whether the proxy is installed on this machine.
    [[nodiscard]] static bool isInstalled();

    /// Passes what comes in over TLS with `identity` on to `backend`; throws when that does not
    /// start.
    H2Front(const TlsIdentity& identity, const ScriptedServer& backend);
    H2Front(const H2Front&) = delete;
    H2Front& operator=(const H2Front&) = delete;
    ~H2Front();

    /// "https://localhost:PORT"
    [[nodiscard]] std::string url() const;

  private:
    TempDirectory directory_;
    std::uint16_t port_;
    int lifeline_ = -1;  ///< the proxy ends when this is closed, at the latest with this process
    pid_t pid_ = 0;
};

}  // namespace orvane::test
