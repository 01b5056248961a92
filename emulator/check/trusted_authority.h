#pragma once

#include <filesystem>

namespace orvane::emulator {

/// Has the HTTP client trust, as long as it exists, what an authority of its own has signed, beside
/// those that the machine trusts. There is one at a time.
class TrustedAuthority {
  public:
    /// Trusts the certificates in the PEM file `file`. Throws BadInput when it has none.
    explicit TrustedAuthority(const std::filesystem::path& file);
    ~TrustedAuthority();
    TrustedAuthority(const TrustedAuthority&) = delete;
    TrustedAuthority& operator=(const TrustedAuthority&) = delete;

    /// Where the certificates are, by hashed name; empty without an authority.
    static const std::filesystem::path& directory();

  private:
    static void forget();
};

}  // namespace orvane::emulator
