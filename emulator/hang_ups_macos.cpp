#include "emulator/hang_ups.h"

#include <sys/event.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace orvane::emulator {
namespace {

constexpr std::uint64_t wakeUpId = 0;

void change(int queue, std::uintptr_t what, std::int16_t filter, unsigned flags, unsigned notes,
            std::uint64_t id) {
    struct kevent64_s event {};
    EV_SET64(&event, what, filter, static_cast<std::uint16_t>(flags), notes, 0, id, 0, 0);
    // A socket that cannot be watched is one whose end is noticed late.
    (void)::kevent64(queue, &event, 1, nullptr, 0, 0, nullptr);
}

}  // namespace

HangUps::HangUps() : queue_(::kqueue()) {
    if (queue_ < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch connections");
    }
    change(queue_, 0, EVFILT_USER, EV_ADD | EV_CLEAR, 0, wakeUpId);
}

HangUps::~HangUps() {
    ::close(queue_);
}

void HangUps::watch(int socket, std::uint64_t id) const {
    change(queue_, static_cast<std::uintptr_t>(socket), EVFILT_READ, EV_ADD | EV_CLEAR, 0, id);
}

void HangUps::forget(int socket) const {
    change(queue_, static_cast<std::uintptr_t>(socket), EVFILT_READ, EV_DELETE, 0, 0);
}

std::vector<std::uint64_t> HangUps::waitUntil(Clock::time_point deadline) const {
    constexpr std::chrono::milliseconds longest = std::chrono::hours(1);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::min(deadline, Clock::now() + longest) - Clock::now());
    const auto count = std::max<std::chrono::milliseconds::rep>(left.count(), 0);
    const timespec limit{count / 1000, (count % 1000) * 1'000'000};
    std::array<struct kevent64_s, 256> events{};
    const int ready =
        ::kevent64(queue_, nullptr, 0, events.data(), static_cast<int>(events.size()), 0, &limit);
    std::vector<std::uint64_t> gone;
    for (int i = 0; i < ready; ++i) {
        const auto& event = events.at(static_cast<std::size_t>(i));
        if (event.udata != wakeUpId && (event.flags & EV_EOF) != 0) {
            gone.push_back(event.udata);
        }
    }
    return gone;
}

void HangUps::interrupt() const {
    change(queue_, 0, EVFILT_USER, 0, NOTE_TRIGGER, wakeUpId);
}

}  // namespace orvane::emulator
