// What systems spell differently of a machine whose network changes.
#pragma once

namespace orvane {

/// A descriptor that becomes readable when the machine may have lost an address, as it does when it
/// goes to another network. In a network where nothing changes it stays silent. For one thread.
class NetworkChanges {
  public:
    /// Watches from here on. Where the system refuses that, no change is ever noticed.
    NetworkChanges();
    NetworkChanges(const NetworkChanges&) = delete;
    NetworkChanges& operator=(const NetworkChanges&) = delete;
    ~NetworkChanges();

    /// To wait for; -1 when there is none.
    [[nodiscard]] int descriptor() const { return descriptor_; }

    /// Takes note of all changes so far: it is not readable before the next one.
    void clear();

  private:
    int descriptor_ = -1;
    [[maybe_unused]] int registration_ = 0;  ///< the system's number for it, where it has one
};

}  // namespace orvane
