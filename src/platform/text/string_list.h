// A compact list of strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// Strings in order, stored contiguously: hundreds of thousands of host names take little more than
/// their bytes, while std::string alone adds 32 to each. REQUIRES: less than 4 GiB in all;
/// unchecked, since everything that is read is smaller.
class StringList {
  public:
    StringList() = default;
    StringList(std::initializer_list<std::string_view> strings) {
        for (const std::string_view string : strings) {
            add(string);
        }
    }

    /// Reserves room for `bytes` in all; pages that are never touched take no memory.
    void reserve(std::size_t bytes) { bytes_.reserve(bytes); }
    void add(std::string_view string) {
        bytes_ += string;
        ends_.push_back(static_cast<std::uint32_t>(bytes_.size()));
    }
    [[nodiscard]] std::size_t size() const { return ends_.size(); }
    /// Valid until the next `add`.
    [[nodiscard]] std::string_view operator[](std::size_t index) const {
        const std::size_t start = index == 0 ? 0 : ends_[index - 1];
        return std::string_view(bytes_).substr(start, ends_[index] - start);
    }

    bool operator==(const StringList&) const = default;

  private:
    std::string bytes_;
    std::vector<std::uint32_t> ends_;  ///< where each string ends in bytes_
};

}  // namespace orvane
