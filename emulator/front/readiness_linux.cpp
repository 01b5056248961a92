#include "emulator/front/readiness.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <tuple>

namespace orvane::front {
namespace {

constexpr std::uint64_t wakeUpId = 0;

bool add(int queue, int socket, std::uint32_t events, std::uint64_t id) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = id;
    return ::epoll_ctl(queue, EPOLL_CTL_ADD, socket, &event) == 0;
}

}  // namespace

Readiness::Readiness()
    : queue_(::epoll_create1(EPOLL_CLOEXEC)), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!add(queue_, wakeUp_, EPOLLIN, wakeUpId)) {
        throw std::system_error(errno, std::generic_category(), "cannot watch connections");
    }
}

Readiness::~Readiness() {
    ::close(wakeUp_);
    ::close(queue_);
}

bool Readiness::watch(int socket, std::uint64_t id) const {
    return add(queue_, socket, EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, id);
}

std::vector<std::uint64_t> Readiness::wait() const {
    std::array<epoll_event, 256> events{};
    const int count = ::epoll_wait(queue_, events.data(), events.size(), /*timeout=*/-1);
    std::vector<std::uint64_t> ready;
    for (int i = 0; i < count; ++i) {
        const std::uint64_t id = events.at(static_cast<std::size_t>(i)).data.u64;
        std::uint64_t number = 0;
        if (id != wakeUpId) {
            ready.push_back(id);
        } else {
            std::ignore = ::read(wakeUp_, &number, sizeof number);
        }
    }
    return ready;
}

void Readiness::interrupt() const {
    const std::uint64_t one = 1;
    std::ignore = ::write(wakeUp_, &one, sizeof one);
}

}  // namespace orvane::front
