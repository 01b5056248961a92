#include "emulator/hang_ups.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <tuple>

namespace orvane::emulator {
namespace {

constexpr std::uint64_t wakeUpId = 0;

void control(int queue, int operation, int socket, std::uint32_t events, std::uint64_t id) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    // A socket that cannot be watched is one whose end is noticed late.
    (void)::epoll_ctl(queue, operation, socket, &event);
}

}  // namespace

HangUps::HangUps()
    : queue_(::epoll_create1(EPOLL_CLOEXEC)), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (queue_ < 0 || wakeUp_ < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch connections");
    }
    control(queue_, EPOLL_CTL_ADD, wakeUp_, EPOLLIN, wakeUpId);
}

HangUps::~HangUps() {
    ::close(wakeUp_);
    ::close(queue_);
}

void HangUps::watch(int socket, std::uint64_t id) const {
    // A reset is always told, data never.
    control(queue_, EPOLL_CTL_ADD, socket, EPOLLRDHUP | EPOLLONESHOT, id);
}

void HangUps::forget(int socket) const {
    control(queue_, EPOLL_CTL_DEL, socket, 0, 0);
}

std::vector<std::uint64_t> HangUps::waitUntil(Clock::time_point deadline) const {
    constexpr std::chrono::milliseconds longest = std::chrono::hours(1);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::min(deadline, Clock::now() + longest) - Clock::now());
    std::array<epoll_event, 256> events{};
    const int count =
        ::epoll_wait(queue_, events.data(), events.size(),
                     static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0)));
    std::vector<std::uint64_t> gone;
    for (int i = 0; i < count; ++i) {
        const std::uint64_t id = events.at(static_cast<std::size_t>(i)).data.u64;
        std::uint64_t number = 0;
        if (id != wakeUpId) {
            gone.push_back(id);
        } else {
            std::ignore = ::read(wakeUp_, &number, sizeof number);
        }
    }
    return gone;
}

void HangUps::interrupt() const {
    const std::uint64_t one = 1;
    std::ignore = ::write(wakeUp_, &one, sizeof one);
}

}  // namespace orvane::emulator
