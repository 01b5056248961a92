// Where a session finds its trusted certificates.
#pragma once

#include "platform/http/curl_handles.h"

#include <optional>
#include <string>

namespace orvane {

/// The machine's directory of hashed certificates, where OpenSSL looks up only the certificates it
/// needs. libcurl's bundle, which has to be parsed completely, is used only if there is no such
/// directory or a verification with it failed. The directory is checked once.
class TrustStore {
  public:
    /// The directory to look up certificates in; empty if there is none.
    const std::string& directory();

    /// Whether libcurl's bundle is read.
    bool readsBundle() { return bundleIsWanted_ || directory().empty(); }

    /// Makes the bundle be read from now on.
    void wantBundle() { bundleIsWanted_ = true; }

    /// Checks again, and starts with the directory alone.
    void forget();

    /// Whether libcurl has a bundle that is readable.
    static bool hasBundle(CURL* easy);

  private:
    std::optional<std::string> directory_;
    bool bundleIsWanted_ = false;  ///< verification with the directory alone failed
};

}  // namespace orvane
