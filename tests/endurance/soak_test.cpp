// The daemon over thousands of cycles, a million on request: what it holds stays flat, and every
// poll is accounted for.
#include "endurance/mixed_server.h"
#include "process/daemon_process.h"
#include "support/daemon_test.h"
#include "support/sanitizers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <thread>
#include <vector>

namespace orvane::test {
namespace {

using ::testing::IsEmpty;

/// What the daemon holds while it waits for an answer.
struct Sample {
    std::size_t descriptors;
    std::size_t threads;
    std::size_t residentKiB;
};

/// Resident memory over all samples.
struct Band {
    std::size_t least;
    std::size_t most;
};

Band bandOf(const std::vector<Sample>& samples) {
    const auto [least, most] = std::minmax_element(
        samples.begin(), samples.end(),
        [](const Sample& a, const Sample& b) { return a.residentKiB < b.residentKiB; });
    return {least->residentKiB, most->residentKiB};
}

class SoakTest : public DaemonTest {
  protected:
    void SetUp() override { writeFile(root() / "etc/machine-id", std::string(32, '1')); }

    /// `cycles` cycles, and all that has to hold of them. A multiple of 2000.
    static void soak(std::size_t cycles) {
        const std::size_t distance = cycles / 100;
        const std::size_t warmUp = cycles / 5;
        std::vector<Sample> samples;
        std::optional<DaemonProcess> daemon;
        std::atomic<bool> started = false;
        MixedServer server(cycles, [&](std::size_t cycle) {
            started.wait(false);
            // In the middle of a row of 304s, on a connection that has been used.
            if (cycle >= warmUp && cycle % distance == MixedServer::period / 2) {
                samples.push_back(
                    {daemon->descriptorCount(), daemon->threadCount(), daemon->residentKiB()});
            }
        });
        enroll(server.url());
        const auto start = std::chrono::steady_clock::now();
        daemon.emplace(
            DaemonSetup{ORVANE_SLEEPLESS_DAEMON, {{"ORVANE_ROOT", root().string()}}, "/dev/null"});
        started = true;
        started.notify_all();
        while (server.polls() <= cycles && daemon->isRunning()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        report(cycles, std::chrono::steady_clock::now() - start, samples);

        EXPECT_TRUE(daemon->isRunning());
        EXPECT_THAT(daemon->children(), IsEmpty());
        expectFlat(samples);
        EXPECT_EQ(server.polls(), cycles + 1);  // one is held
        EXPECT_EQ(server.effectiveFetches(), cycles / MixedServer::period);
        EXPECT_EQ(recordedStatuses(), MixedServer::statusesIn(cycles));
        EXPECT_EQ(backOffs(),
                  (std::map<std::string, std::size_t>{{"60", MixedServer::errorsIn(cycles)}}));
        (void)daemon->end(SIGKILL);
    }

  private:
    static void report(std::size_t cycles, std::chrono::duration<double> wall,
                       const std::vector<Sample>& samples) {
        const Band memory = bandOf(samples);
        std::cout << cycles << " cycles in " << wall.count() << " s, "
                  << static_cast<double>(cycles) / wall.count() << " a second; resident KiB "
                  << memory.least << " to " << memory.most << ", descriptors "
                  << samples.back().descriptors << ", threads " << samples.back().threads << "\n";
    }

    static void expectFlat(const std::vector<Sample>& samples) {
        for (const Sample& sample : samples) {
            EXPECT_EQ(sample.descriptors, samples.front().descriptors);
            EXPECT_EQ(sample.threads, samples.front().threads);
        }
        if constexpr (!isSanitized) {  // sanitizers keep freed memory back
            const Band memory = bandOf(samples);
            EXPECT_LE(memory.most - memory.least, DaemonProcess::slackKiB);
        }
    }

    /// How often each status is on record.
    static std::map<int, std::size_t> recordedStatuses() {
        std::map<int, std::size_t> counts;
        std::ifstream lines(activityFile());
        for (std::string line; std::getline(lines, line);) {
            ++counts[nlohmann::json::parse(line).at("status").get<int>()];
        }
        return counts;
    }

    /// How often the daemon slept for so many seconds.
    static std::map<std::string, std::size_t> backOffs() {
        std::map<std::string, std::size_t> counts;
        std::ifstream lines(root() / "sleeps");
        for (std::string line; std::getline(lines, line);) {
            ++counts[line];
        }
        return counts;
    }
};

using NightlySoakTest = SoakTest;

TEST_F(SoakTest, TwoThousandCycles) {
    soak(2000);
}

TEST_F(NightlySoakTest, AMillionCycles) {
    soak(1'000'000);
}

}  // namespace
}  // namespace orvane::test
