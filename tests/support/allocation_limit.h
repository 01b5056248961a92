// Memory that runs out.
#pragma once

#include <cstddef>

namespace orvane::test {

/// While it lives, no `new` of more than `most` bytes succeeds, in any thread. One at a time.
class AllocationLimit {
  public:
    explicit AllocationLimit(std::size_t most);
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
    ~AllocationLimit();
};

}  // namespace orvane::test
