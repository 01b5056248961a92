#include "emulator/active_faults.h"

#include <algorithm>
#include <utility>

namespace orvane::emulator {

void ActiveFaults::set(std::vector<Fault> faults, Clock::time_point now) {
    faults_ = std::move(faults);
    ends_.clear();
    for (const Fault& fault : faults_) {
        ends_.push_back(fault.lasts.count() == 0 ? Clock::time_point::max() : now + fault.lasts);
    }
    ++version_;
}

bool ActiveFaults::expire(Clock::time_point now) {
    const std::size_t before = faults_.size();
    for (std::size_t i = before; i-- > 0;) {
        if (ends_[i] <= now) {
            faults_.erase(faults_.begin() + static_cast<std::ptrdiff_t>(i));
            ends_.erase(ends_.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    const bool changed = faults_.size() != before;
    version_ += changed ? 1 : 0;
    return changed;
}

Clock::time_point ActiveFaults::nextEnd() const {
    const auto first = std::min_element(ends_.begin(), ends_.end());
    return first == ends_.end() ? Clock::time_point::max() : *first;
}

}  // namespace orvane::emulator
