// Where a session finds the certificates that it trusts.
#pragma once

#include "platform/http/curl_handles.h"

#include <optional>
#include <string>

namespace orvane {

/// The machine's directory of hashed certificates, in which the one that is needed is looked up;
/// the library's bundle, which is read certificate by certificate, only when there is no such
/// directory or it did not do. What is there is looked at once.
class TrustStore {
  public:
    /// The directory to look certificates up in; empty when there is none.
    const std::string& directory();

    /// Whether the library's bundle is read.
    bool readsBundle() { return bundleIsWanted_ || directory().empty(); }

    /// Has the bundle read from now on.
    void wantBundle() { bundleIsWanted_ = true; }

    /// Looks again, and starts with the directory alone.
    void forget();

    /// Whether the library has a bundle that can be read.
    static bool hasBundle(CURL* easy);

  private:
    std::optional<std::string> directory_;
    bool bundleIsWanted_ = false;  ///< the directory alone did not do
};

}  // namespace orvane
