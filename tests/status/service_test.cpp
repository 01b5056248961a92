#include "status/service.h"

#include <gtest/gtest.h>

namespace orvane::status {
namespace {

using std::chrono::seconds;

TEST(SystemdTest, AServiceThatRunsHasAProcess) {
    const Service service = serviceInSystemd(
        "MainPID=4711\nNRestarts=2\nLoadState=loaded\nActiveState=active\n"
        "ActiveEnterTimestampMonotonic=1000000\n",
        seconds(42));
    EXPECT_EQ(service.state, ServiceState::running);
    EXPECT_EQ(service.pid, 4711);
    EXPECT_EQ(service.restarts, 2);
    EXPECT_EQ(service.runningFor, seconds(41));
}

TEST(SystemdTest, StatesAreTakenFromWhatIsLoadedAndActive) {
    const std::vector<std::pair<std::string, ServiceState>> cases{
        {"LoadState=loaded\nActiveState=active\n", ServiceState::running},
        {"LoadState=loaded\nActiveState=activating\n", ServiceState::restarting},
        {"LoadState=loaded\nActiveState=inactive\n", ServiceState::stopped},
        {"LoadState=loaded\nActiveState=failed", ServiceState::stopped},
        {"LoadState=masked\nActiveState=inactive\n", ServiceState::masked},
        {"LoadState=not-found\nActiveState=inactive\n", ServiceState::notInstalled},
        {"", ServiceState::unknown},
        {"Failed to connect to bus\n", ServiceState::unknown},
    };
    for (const auto& [properties, state] : cases) {
        const Service service = serviceInSystemd(properties, seconds(1));
        EXPECT_EQ(service.state, state) << properties;
        EXPECT_FALSE(service.pid);
        EXPECT_FALSE(service.runningFor);
    }
}

TEST(SystemdTest, AStoppedServiceHasNoProcess) {
    EXPECT_FALSE(
        serviceInSystemd("LoadState=loaded\nActiveState=inactive\nMainPID=0\n", seconds(1)).pid);
}

TEST(LaunchdTest, AListingHasTheProcessAndHowOftenItRan) {
    const Service service = serviceInLaunchd(
        "gui/501/dev.orvane.policy-daemon = {\n\tactive count = 1\n\tstate = running\n\n"
        "\truns = 3\n\tpid = 4711\n\timmediate reason = speculative\n}\n");
    EXPECT_EQ(service.state, ServiceState::running);
    EXPECT_EQ(service.pid, 4711);
    EXPECT_EQ(service.restarts, 2);
    EXPECT_FALSE(service.runningFor);
}

TEST(LaunchdTest, WithoutAProcessItWaitsToBeStarted) {
    const Service service = serviceInLaunchd("x = {\n\tstate = spawn scheduled\n\truns = 3\n}\n");
    EXPECT_EQ(service.state, ServiceState::restarting);
    EXPECT_FALSE(service.pid);
}

TEST(LaunchdTest, HowOftenItRanMayBeMissing) {
    EXPECT_FALSE(serviceInLaunchd("x = {\n\tpid = 4711\n}\n").restarts);
}

TEST(LaunchdTest, AServiceThatItDoesNotKnowIsStopped) {
    EXPECT_EQ(serviceInLaunchd("").state, ServiceState::stopped);
    EXPECT_FALSE(serviceInLaunchd("").restarts);
}

TEST(AccountTest, AnAccountWithoutAServiceManagerIsNotLoggedInUnlessItLingers) {
    EXPECT_EQ(stateWithoutManager(firstOrdinaryUser, false), ServiceState::notLoggedIn);
    EXPECT_EQ(stateWithoutManager(firstOrdinaryUser, true), ServiceState::stopped);
    EXPECT_EQ(stateWithoutManager(firstOrdinaryUser - 1, true), ServiceState::systemAccount);
}

TEST(AccountTest, AnAccountOfTheSystemNeverHasADaemon) {
    const auto stateFor = [](std::uint32_t user, ServiceState state) {
        return serviceFor(user, {state, {}, {}, {}}).state;
    };
    EXPECT_EQ(stateFor(0, ServiceState::stopped), ServiceState::systemAccount);
    EXPECT_EQ(stateFor(0, ServiceState::running), ServiceState::running);
    EXPECT_EQ(stateFor(firstOrdinaryUser, ServiceState::stopped), ServiceState::stopped);
}

}  // namespace
}  // namespace orvane::status
