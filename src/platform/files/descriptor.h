// An owned file descriptor. For the sources of src/platform only.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvane {

/// Owns a file descriptor and closes it on destruction; -1 means none. Move assignment swaps: the
/// descriptor that was held before is closed when `other` goes.
class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { (void)close(); }

    [[nodiscard]] int number() const { return number_; }
    [[nodiscard]] bool isOpen() const { return number_ >= 0; }

    /// Closes now; false if that failed: some file systems report a failed write only here. EINTR
    /// is not a failure, and close must not be retried: the descriptor is already closed.
    bool close() {
        return number_ < 0 || ::close(std::exchange(number_, -1)) == 0 || errno == EINTR;
    }

  private:
    int number_;
};

}  // namespace orvane
