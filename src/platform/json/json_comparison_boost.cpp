#include "platform/json/json_comparison.h"

#include "platform/json/json_events_boost.h"
#include "platform/json/json_reader.h"
#include "platform/text/text.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace orvane::json {

namespace {

/// Follows the parser's events. Each handler stops the parser at the first difference.
class Comparer : public ParserEvents {
  public:
    explicit Comparer(const std::vector<ExpectedMember>& expected) {
        for (const ExpectedMember& member : expected) {
            longestKey_ = std::max(longestKey_, member.key.size());
            members_.push_back({.expected = member, .isSeen = false});
        }
    }

    /// Whether all required members were present.
    [[nodiscard]] bool isComplete() const {
        return std::all_of(members_.begin(), members_.end(), [](const Member& member) {
            return member.isSeen || mayBeMissing(member.expected);
        });
    }

    bool on_object_begin(error_code& error) {
        const bool isExpected = depth_ == 0 || takeOther();
        ++depth_;
        return check(isExpected, error);
    }
    bool on_object_end(std::size_t /*count*/, error_code& /*error*/) { return leave(); }
    bool on_array_begin(error_code& error) {
        const StringList* const list = current_ == nullptr ? nullptr : listOf(*current_);
        const bool isExpected = depth_ > 0 && (list != nullptr || takeOther());
        if (list != nullptr) {
            std::exchange(current_, nullptr)->isSeen = true;
            list_ = list;
            index_ = 0;
        }
        ++depth_;
        return check(isExpected, error);
    }
    bool on_array_end(std::size_t /*count*/, error_code& error) {
        (void)leave();
        if (list_ == nullptr) {
            return true;
        }
        return check(std::exchange(list_, nullptr)->size() == index_, error);
    }

    bool on_key_part(std::string_view part, std::size_t /*size*/, error_code& /*error*/) {
        // One byte more than the longest expected key is enough to differ from all of them.
        key_ += part.substr(0, longestKey_ + 1 - std::min(longestKey_ + 1, key_.size()));
        return true;
    }
    bool on_key(std::string_view end, std::size_t size, error_code& error) {
        (void)on_key_part(end, size, error);
        if (depth_ == 1) {
            const auto found =
                std::find_if(members_.begin(), members_.end(),
                             [this](const Member& member) { return member.expected.key == key_; });
            // Of duplicate keys the first wins.
            current_ = found == members_.end() || found->isSeen ? nullptr : &*found;
        }
        key_.clear();
        return true;
    }

    bool on_string_part(std::string_view part, std::size_t /*size*/, error_code& error) {
        return check(list_ == nullptr || compare(part), error);
    }
    bool on_string(std::string_view end, std::size_t /*size*/, error_code& error) {
        if (list_ == nullptr) {
            return check(takeOther(), error);
        }
        const bool isSame = compare(end) && offset_ == (*list_)[index_].size();
        offset_ = 0;
        ++index_;
        return check(isSame, error);
    }

    bool on_int64(std::int64_t /*value*/, std::string_view /*end*/, error_code& error) {
        return check(takeOther(), error);
    }
    bool on_uint64(std::uint64_t /*value*/, std::string_view /*end*/, error_code& error) {
        return check(takeOther(), error);
    }
    bool on_double(double value, std::string_view end, error_code& error) {
        return check(!isBeyondRange(value, end) && takeOther(), error);
    }
    bool on_bool(bool value, error_code& error) {
        const bool* const expected =
            current_ == nullptr ? nullptr : std::get_if<bool>(&current_->expected.value);
        if (expected == nullptr) {
            return check(takeOther(), error);
        }
        std::exchange(current_, nullptr)->isSeen = true;
        return check(value == *expected, error);
    }
    bool on_null(error_code& error) { return check(takeOther(), error); }

  private:
    struct Member {
        ExpectedMember expected;
        bool isSeen;
    };

    static bool mayBeMissing(const ExpectedMember& expected) {
        return expected.defaultsToFalse && expected.value == decltype(expected.value)(false);
    }

    static const StringList* listOf(const Member& member) {
        const auto* const list = std::get_if<const StringList*>(&member.expected.value);
        return list == nullptr ? nullptr : *list;
    }

    /// Ends the parsing unless `isExpected`, and returns that.
    static bool check(bool isExpected, error_code& error) {
        if (!isExpected) {
            (void)refuse(error);
        }
        return isExpected;
    }

    /// Takes a value of another type than expected. False if that makes a difference.
    bool takeOther() {
        if (depth_ == 0 || list_ != nullptr) {
            return false;  // a scalar at the top level, or not a string in the list
        }
        if (current_ == nullptr) {
            return true;
        }
        Member& member = *std::exchange(current_, nullptr);
        member.isSeen = true;
        return mayBeMissing(member.expected);
    }

    bool leave() {
        --depth_;
        return true;
    }

    /// Compares the next part of a string in the list.
    bool compare(std::string_view part) {
        if (index_ >= list_->size() || (*list_)[index_].substr(offset_, part.size()) != part) {
            return false;
        }
        offset_ += part.size();
        return true;
    }

    std::vector<Member> members_;
    std::size_t longestKey_ = 0;
    std::size_t depth_ = 0;             ///< number of open containers
    std::string key_;                   ///< the beginning of a key, until its end
    Member* current_ = nullptr;         ///< the member that the next value belongs to
    const StringList* list_ = nullptr;  ///< what the open array is compared with
    std::size_t index_ = 0;             ///< of the next string
    std::size_t offset_ = 0;            ///< how much of it has been compared
};

boost::json::parse_options options() {
    boost::json::parse_options options;
    options.max_depth = depthLimit;
    return options;
}

}  // namespace

class Comparison::Parser {
  public:
    explicit Parser(const std::vector<ExpectedMember>& expected) : parser_(options(), expected) {}

    bool add(std::string_view piece) {
        if (std::exchange(isFirst_, false)) {
            piece = text::withoutByteOrderMark(piece);
        }
        return isUsable_ = isUsable_ && write(true, piece);
    }

    bool isSame() { return isUsable_ && write(false, "") && parser_.handler().isComplete(); }

  private:
    bool write(bool more, std::string_view text) {
        error_code error;
        return parser_.write_some(more, text.data(), text.size(), error) == text.size() && !error;
    }

    boost::json::basic_parser<Comparer> parser_;
    bool isFirst_ = true;
    bool isUsable_ = true;
};

Comparison::Comparison(const std::vector<ExpectedMember>& expected)
    : parser_(std::make_unique<Parser>(expected)) {}

Comparison::~Comparison() = default;

bool Comparison::add(std::string_view piece) {
    return parser_->add(piece);
}

bool Comparison::isSame() {
    return parser_->isSame();
}

}  // namespace orvane::json
