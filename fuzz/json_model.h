// JSON a second time, by another library: what the daemon has to find in a document.
#pragma once

#include "platform/text/string_list.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct json_t;

namespace orvane::fuzz {

/// A text that may be a JSON object by the daemon's rules (platform/json/json_reader.h). Paths name
/// members as they do there.
class JsonModel {
  public:
    explicit JsonModel(std::string_view text);

    /// Whether the text can be judged. It cannot when a key holds U+0000.
    [[nodiscard]] bool isDecided() const { return verdict_ != Verdict::unknown; }
    /// Whether the text is an object that the daemon has to take.
    [[nodiscard]] bool isUsable() const { return verdict_ == Verdict::usable; }
    /// Whether the members below are known: of repeated keys this library sees the last, the daemon
    /// the first.
    [[nodiscard]] bool knowsMembers() const { return isDecided() && !hasRepeatedKeys_; }

    [[nodiscard]] std::optional<std::string> string(std::string_view path) const;
    [[nodiscard]] std::optional<std::string> nonEmptyString(std::string_view path) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view path) const;
    [[nodiscard]] std::optional<StringList> strings(std::string_view path) const;
    [[nodiscard]] bool isObject(std::string_view path) const;
    /// The names of the top level's members, in the order of the text.
    [[nodiscard]] std::vector<std::string> keys() const;

  private:
    enum class Verdict { refused, usable, unknown };

    [[nodiscard]] json_t* at(std::string_view path) const;

    std::shared_ptr<json_t> top_;  ///< null unless usable
    Verdict verdict_ = Verdict::refused;
    bool hasRepeatedKeys_ = false;
};

}  // namespace orvane::fuzz
