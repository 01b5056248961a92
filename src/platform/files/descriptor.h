// An owned file descriptor, for the sources of this directory only.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace orvane {

/// Closes its descriptor when it goes; -1 stands for none.
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

    /// Closes now and tells whether that went well: some file systems report a failed write only
    /// here. An interruption is none of that, and it must not be made again: it is closed.
    bool close() {
        return number_ < 0 || ::close(std::exchange(number_, -1)) == 0 || errno == EINTR;
    }

  private:
    int number_;
};

}  // namespace orvane
