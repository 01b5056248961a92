// A list of texts for many of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

/// Texts in order, held in one piece of memory: hundreds of thousands of them take little more than
/// their bytes. REQUIRES: less than 4 GiB in all; nothing checks it, since all that is read is
/// smaller.
class TextList {
  public:
    TextList() = default;
    TextList(std::initializer_list<std::string_view> texts) {
        for (const std::string_view text : texts) {
            add(text);
        }
    }

    /// Makes room for `bytes` of text; untouched room takes no memory.
    void reserve(std::size_t bytes) { bytes_.reserve(bytes); }
    void add(std::string_view text) {
        bytes_ += text;
        ends_.push_back(static_cast<std::uint32_t>(bytes_.size()));
    }
    [[nodiscard]] std::size_t size() const { return ends_.size(); }
    /// Good until the next `add`.
    [[nodiscard]] std::string_view operator[](std::size_t index) const {
        const std::size_t start = index == 0 ? 0 : ends_[index - 1];
        return std::string_view(bytes_).substr(start, ends_[index] - start);
    }

    bool operator==(const TextList&) const = default;

  private:
    std::string bytes_;
    std::vector<std::uint32_t> ends_;  ///< where each text ends in bytes_
};

}  // namespace orvane
