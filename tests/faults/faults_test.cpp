// One whole poll cycle, from the control plane's answer to the next poll, with each of its file and
// process calls failing in each way, being the last before the process is killed, and with two
// failures at once. The calls are those that strace(1) has seen in a good cycle, so that a new one
// is among them at once.
//
// The test build runs, with the virtual clock: its paths are the test's, and its back-offs take no
// time.
#include "faults/cycle_model.h"
#include "faults/device.h"
#include "faults/named_faults.h"
#include "faults/strace.h"
#include "support/policy_versions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <random>
#include <set>
#include <stdexcept>

namespace orvane::test {

void PrintTo(const Outcome& outcome, std::ostream* out) {
    for (const auto& [file, version] : outcome.versions) {
        *out << "\n  " << pathOf(file) << ": version " << version;
    }
    for (const std::string& line : outcome.log) {
        *out << "\n  log: " << line;
    }
    *out << "\n  activity: " << outcome.activity << "\n  tag: " << outcome.tag.value_or("(none)")
         << "\n  uuid: " << outcome.knowsUuid << "\n";
}

namespace {

using ::testing::_;
using ::testing::Each;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Ne;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::StartsWith;

struct ErrorName {
    const char* name;
    int number;
};

constexpr std::array errors{ErrorName{"EIO", EIO},       ErrorName{"ENOSPC", ENOSPC},
                            ErrorName{"EACCES", EACCES}, ErrorName{"EDQUOT", EDQUOT},
                            ErrorName{"EMFILE", EMFILE}, ErrorName{"EINTR", EINTR}};

std::string nameOf(int error) {
    return std::find_if(errors.begin(), errors.end(),
                        [=](const ErrorName& known) { return known.number == error; })
        ->name;
}

std::string nameOf(InitialState initial) {
    return initial == InitialState::firstPolicy ? "first policy" : "next policy";
}

/// strace's syntax for it. No system interrupts a call indefinitely that is retried each time: here
/// it is five times in a row.
std::string failure(const Call& call, int error, Lasting lasting) {
    const std::string when = std::to_string(call.occurrence) +
                             (lasting == Lasting::once ? ""
                              : error == EINTR         ? ".." + std::to_string(call.occurrence + 4)
                                                       : "+");
    return call.name + ":error=" + nameOf(error) + ":when=" + when;
}

std::string kill(const Call& call) {
    return call.name + ":signal=KILL:when=" + std::to_string(call.occurrence);
}

std::string describe(const CycleModel& model, const Fault& fault) {
    return nameOf(model.initial()) + ", " + describe(model.calls().at(fault.index)) + " " +
           nameOf(fault.error) + (fault.lasting == Lasting::once ? " once" : " from then on");
}

/// What a good cycle does, from the main thread's calls and those of its child.
CycleModel recorded(InitialState initial) {
    const auto record = [=](Traced traced) {
        return Device(initial).runCycle(offered, {}, traced);
    };
    std::vector<Call> calls = record(Traced::mainThread);
    for (const Call& call : record(Traced::everything)) {
        if (call.inChild) {
            calls.push_back(call);
        }
    }
    return {initial, std::move(calls)};
}

/// Of the same line many times over, one.
std::vector<std::string> withoutRepeats(std::vector<std::string> lines) {
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    return lines;
}

/// The log since the cycle began, without the root.
std::vector<std::string> logOf(Device& device) {
    auto lines = withoutRepeats(device.log());
    for (std::string& line : lines) {
        if (const auto at = line.find(device.root().string()); at != std::string::npos) {
            line.erase(at, device.root().string().size());
        }
    }
    return lines;
}

std::map<File, int> versionsOf(const Device& device) {
    std::map<File, int> versions;
    for (const File file : allFiles) {
        versions[file] = device.version(file);
    }
    return versions;
}

std::map<File, int> allOf(int version) {
    std::map<File, int> versions;
    for (const File file : allFiles) {
        versions[file] = version;
    }
    return versions;
}

Outcome outcomeOf(Device& device) {
    const auto targets = device.server().effectiveTargets();
    return {versionsOf(device), logOf(device), device.activity(), device.server().polls().back(),
            !targets.empty() && targets.back().find("device-1") != std::string::npos};
}

/// The next good cycle makes everything good.
void expectHealing(Device& device, InitialState initial) {
    ASSERT_TRUE(device.goodCycle(later)) << "it does not poll again";
    EXPECT_EQ(versionsOf(device), allOf(later));
    EXPECT_THAT(device.wrongModes(), IsEmpty());
    EXPECT_THAT(device.leftovers(), IsEmpty());
    EXPECT_EQ(logOf(device).size(), 3U) << ::testing::PrintToString(logOf(device));
    EXPECT_THAT(logOf(device), Each(StartsWith("default ")));
    EXPECT_THAT(device.activity(), EndsWith("poll$effective$"));
    EXPECT_EQ(outcomeOf(device).knowsUuid, initial == InitialState::firstPolicy);
    EXPECT_TRUE(device.daemon().isRunning());
}

/// Restarted where it was killed, it makes everything good with one poll. Only when the ETag is
/// there already, that poll brings nothing, and what came before the ETag or should have come after
/// it waits for the next policy.
void expectRecovery(Device& device, InitialState initial) {
    auto expected = versionsOf(device);
    EXPECT_THAT(expected, Each(Pair(_, Ne(torn))));
    // A policy that was lost in its replacement is requested without the ETag.
    const bool isCutOff = expected.at(File::policy) == absent &&
                          std::filesystem::exists(device.root() / (pathOf(File::policy) + ".tmp"));
    const int tag = isCutOff ? absent : expected.at(File::tag);
    if (tag != offered) {
        expected = allOf(offered);
    } else if (expected.at(File::policy) != absent) {
        expected[File::capture] = expected.at(File::policy);
    }
    device.restart();
    EXPECT_EQ(device.server().polls().back(),
              tag == absent ? std::nullopt : std::optional(policyVersion(tag).etag));
    ASSERT_TRUE(device.goodCycle(offered)) << "it does not poll again";
    EXPECT_EQ(versionsOf(device), expected);
    expectHealing(device, initial);
}

/// What a killed process leaves is at most one file for each that it was writing.
void expectOneScratchFileEach(const Device& device) {
    std::map<std::string, int> scratchFiles;
    for (const std::string& name : device.leftovers()) {
        // ".policy.json.tmp.0.0123456789abcdef.tmp" is to become "policy.json.tmp".
        const std::string account = "." + std::to_string(::geteuid()) + ".";
        const bool isScratch = name.starts_with(".");
        EXPECT_LE(
            ++scratchFiles[isScratch ? name.substr(1, name.rfind(account) - 1) : name + " itself"],
            1)
            << name;
    }
}

class FaultsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        const std::string obstacle = Strace::obstacle();
        if (!obstacle.empty()) {
            const bool mustRun = std::getenv("CI") != nullptr && ::geteuid() == 0;
            ASSERT_FALSE(mustRun) << obstacle;
            GTEST_SKIP() << obstacle;
        }
        preferMemory();
    }
};

/// Runs a cycle with `fault`, checks what holds after each, and gives its outcome to `check`.
void expectAfter(const CycleModel& model, const Fault& fault,
                 const std::function<void(const Outcome&)>& check) {
    SCOPED_TRACE(describe(model, fault));
    const Call& call = model.calls().at(fault.index);
    Device device(model.initial());
    const auto calls = device.runCycle(offered, {failure(call, fault.error, fault.lasting)},
                                       call.inChild ? Traced::everything : Traced::mainThread);
    const auto first =
        std::find_if(calls.begin(), calls.end(), [](const Call& made) { return made.spoilt; });
    ASSERT_TRUE(first != calls.end()) << "nothing failed";
    EXPECT_EQ(*first, call);
    ASSERT_TRUE(device.pollsAgain());
    const Outcome outcome = outcomeOf(device);
    EXPECT_THAT(model.brokenPromises(fault, outcome), IsEmpty())
        << ::testing::PrintToString(outcome);
    check(outcome);
    for (const auto& [file, version] : outcome.versions) {
        const bool isWaiting = std::filesystem::exists(device.root() / (pathOf(file) + ".tmp"));
        EXPECT_TRUE(version != absent || isWaiting || model.initial() == InitialState::firstPolicy)
            << pathOf(file) << " is lost";
    }
    EXPECT_THAT(device.wrongModes(), IsEmpty());
    EXPECT_THAT(device.leftovers(), Each(Not(StartsWith(".")))) << "a scratch file";
    expectHealing(device, model.initial());
}

void expectPromisesKept(const CycleModel& model, const Fault& fault) {
    expectAfter(model, fault, [](const Outcome& /*outcome*/) {});
}

void expectRecoveryFromKill(const CycleModel& model, std::size_t index) {
    const Call& call = model.calls().at(index);
    SCOPED_TRACE(nameOf(model.initial()) + ", killed at " + describe(call));
    Device device(model.initial());
    (void)device.runCycle(offered, {kill(call)});
    ASSERT_FALSE(device.daemon().isRunning());
    const auto versions = versionsOf(device);
    EXPECT_EQ(versions, model.versionsBefore(index));
    EXPECT_TRUE(versions.at(File::tag) != offered || versions.at(File::policy) == offered)
        << "an ETag without its policy";
    EXPECT_THAT(device.wrongModes(), Each(StartsWith("."))) << "other than of a scratch file";
    expectOneScratchFileEach(device);
    expectRecovery(device, model.initial());
}

/// Everything that can fail, in each way and for as long. But strace counts a child's calls from
/// the start of each child: what is tried again when it was interrupted would be interrupted for
/// ever.
std::vector<Fault> matrix(const CycleModel& model) {
    std::vector<Fault> faults;
    for (std::size_t i = 0; i < model.calls().size(); ++i) {
        for (const ErrorName& error : errors) {
            for (const Lasting lasting : {Lasting::once, Lasting::fromThenOn}) {
                const bool isForEver = model.calls()[i].inChild && error.number == EINTR;
                if (!isForEver && !model.keepsPipeOpen(i, lasting)) {
                    faults.push_back({i, error.number, lasting});
                }
            }
        }
    }
    return faults;
}

/// A part of the work, so that parts can be done at the same time.
struct Part {
    InitialState initial;
    std::size_t index;
    std::size_t count;

    [[nodiscard]] bool has(std::size_t item) const { return item % count == index; }
};

std::string testNameOf(const ::testing::TestParamInfo<Part>& info) {
    const Part& part = info.param;
    return std::string(part.initial == InitialState::firstPolicy ? "FirstPolicy" : "NextPolicy") +
           "Part" + std::to_string(part.index + 1) + "Of" + std::to_string(part.count);
}

std::vector<Part> parts(std::size_t count) {
    std::vector<Part> all;
    for (const InitialState initial : allInitialStates) {
        for (std::size_t i = 0; i < count; ++i) {
            all.push_back({initial, i, count});
        }
    }
    return all;
}

Call callTo(const std::string& name, CallKind kind, const std::string& path) {
    return {name, 1, kind, path, "", false, false, false, false};
}

TEST(CycleModelTest, ACallThatNothingIsKnownAboutIsRefused) {
    const Outcome any;
    for (const char* path :
         {"sys/class/dmi/id/product_uuid", "etc/hosts", "home/.orvane/new", "etc/policy.json",
          "home/.orvane/policy.json.old", "home/.orvane/logs/new.jsonl", "new/machine-id"}) {
        const Call call = callTo("openat", CallKind::open, path);
        const CycleModel model(InitialState::nextPolicy, {call, call});
        EXPECT_THROW((void)model.brokenPromises({1, EIO, Lasting::once}, any), std::runtime_error)
            << path;
    }
    const CycleModel model(InitialState::nextPolicy,
                           {callTo("truncate", CallKind::other, pathOf(File::policy))});
    EXPECT_THROW((void)model.brokenPromises({0, EIO, Lasting::once}, any), std::runtime_error);
}

class BrokenPromisesTest : public ::testing::Test {
  protected:
    /// Of a cycle in which the policy's scratch file could not be opened.
    [[nodiscard]] std::vector<std::string> broken(const Outcome& outcome) const {
        return model_.brokenPromises({0, EIO, Lasting::once}, outcome);
    }
    /// Such a cycle as it should be.
    [[nodiscard]] Outcome good() const {
        Outcome outcome = model_.goodOutcome();
        outcome.versions[File::policy] = before;
        outcome.versions[File::capture] = before;
        outcome.log = {failureLine(File::policy) + std::generic_category().message(EIO),
                       updatedLine(), effectiveLine()};
        return outcome;
    }

  private:
    CycleModel model_{InitialState::nextPolicy,
                      {callTo("openat", CallKind::open, scratchOf(pathOf(File::policy) + ".tmp"))}};
};

TEST_F(BrokenPromisesTest, AreNoneWhereTheLogSaysWhatIsOld) {
    EXPECT_THAT(broken(good()), IsEmpty());
}

TEST_F(BrokenPromisesTest, AreFoundInEachPartOfAnOutcome) {
    const std::vector<std::function<void(Outcome&)>> faults{
        [](Outcome& outcome) { outcome.versions[File::policy] = torn; },
        [](Outcome& outcome) { outcome.versions[File::tag] = before; },
        [](Outcome& outcome) { outcome.versions[File::effective] = absent; },
        [](Outcome& outcome) { outcome.versions[File::capture] = offered; },
        [](Outcome& outcome) { outcome.log.erase(outcome.log.begin()); },
        [](Outcome& outcome) { outcome.log.pop_back(); },
        [](Outcome& outcome) { outcome.log.push_back(captureLine()); },
        [](Outcome& outcome) { outcome.log.insert(outcome.log.begin(), outcome.log.front()); },
        [](Outcome& outcome) { outcome.log[0] = failureLine(File::policy) + "No such thing"; },
        [](Outcome& outcome) { outcome.activity = "old$effective$"; },
        [](Outcome& outcome) { outcome.tag = std::nullopt; },
        [](Outcome& outcome) { outcome.knowsUuid = true; }};
    for (std::size_t i = 0; i < faults.size(); ++i) {
        Outcome outcome = good();
        faults[i](outcome);
        EXPECT_THAT(broken(outcome), Not(IsEmpty())) << i;
    }
}

class EachInitialState : public FaultsTest, public ::testing::WithParamInterface<InitialState> {};
INSTANTIATE_TEST_SUITE_P(Faults, EachInitialState, ::testing::ValuesIn(allInitialStates));

TEST_P(EachInitialState, AGoodCycleMakesTheSameCallsEachTimeAndEndsAsStated) {
    const CycleModel model = recorded(GetParam());
    std::cout << model.calls().size() << " calls\n";
    EXPECT_EQ(model.calls(), recorded(GetParam()).calls());
    for (std::size_t i = 0; i < model.calls().size(); ++i) {
        EXPECT_NO_THROW((void)model.brokenPromises({i, EIO, Lasting::once}, model.goodOutcome()));
    }
    Device device(GetParam());
    (void)device.runCycle(offered, {});
    EXPECT_EQ(outcomeOf(device), model.goodOutcome());
    EXPECT_THAT(device.leftovers(), IsEmpty());
    expectHealing(device, GetParam());
}

TEST_P(EachInitialState, NamedFaultsHaveTheStatedOutcome) {
    const CycleModel model = recorded(GetParam());
    for (const NamedFault& named : namedFaults(GetParam())) {
        SCOPED_TRACE(named.name);
        Outcome expected = model.goodOutcome();
        named.change(expected);
        expectAfter(model, named.in(model),
                    [&](const Outcome& outcome) { EXPECT_EQ(outcome, expected); });
    }
}

class EachPart : public FaultsTest, public ::testing::WithParamInterface<Part> {
  protected:
    const Part part = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Faults, EachPart, ::testing::ValuesIn(parts(3)), testNameOf);

TEST_P(EachPart, AnInputOutputErrorOfAnyCallBreaksNoPromise) {
    const CycleModel model = recorded(part.initial);
    for (std::size_t i = 0; i < model.calls().size(); ++i) {
        if (part.has(i) && !model.keepsPipeOpen(i, Lasting::once)) {
            expectPromisesKept(model, {i, EIO, Lasting::once});
        }
    }
}

TEST_P(EachPart, KilledAtAnyCallItRecoversWithOnePoll) {
    const CycleModel model = recorded(part.initial);
    for (std::size_t i = 0; i < model.calls().size(); ++i) {
        if (part.has(i) && !model.calls()[i].inChild) {
            expectRecoveryFromKill(model, i);
        }
    }
}

TEST_P(EachPart, OfAllOtherFailuresASampleBreaksNoPromise) {
    constexpr std::size_t each = 127;  // no divisor of the numbers of errors and parts
    const CycleModel model = recorded(part.initial);
    const auto faults = matrix(model);
    for (std::size_t i = part.index * each / part.count; i < faults.size(); i += each) {
        expectPromisesKept(model, faults[i]);
    }
}

/// What the manual tells operators to do: without an ETag the next poll brings everything.
void expectRepair(Device& device) {
    std::filesystem::remove(device.root() / pathOf(File::tag));
    device.server().answerOne(offered);  // the poll that is held still has the ETag
    ASSERT_TRUE(device.goodCycle(offered));
    EXPECT_EQ(versionsOf(device), allOf(offered));
}

TEST_F(FaultsTest, WithoutItsFlushANewPolicyIsMissingUntilTheEtagFileIsRemoved) {
    Device device(InitialState::nextPolicy);
    (void)device.runCycle(offered, {"fsync:error=EIO:when=1"});
    ASSERT_TRUE(device.pollsAgain());
    auto expected = allOf(offered);
    expected[File::policy] = before;
    expected[File::capture] = before;
    EXPECT_EQ(versionsOf(device), expected);
    expectRepair(device);
}

TEST_F(FaultsTest, KilledAfterTheEtagTheEffectiveConfigurationIsOld) {
    const CycleModel model = recorded(InitialState::nextPolicy);
    const auto fetch =
        std::find_if(model.calls().begin(), model.calls().end(),
                     [](const Call& call) { return call.path == "stderr"; });  // "policy updated"
    Device device(model.initial());
    (void)device.runCycle(offered, {kill(*fetch)});
    device.restart();
    ASSERT_TRUE(device.goodCycle(offered));
    auto expected = allOf(offered);
    expected[File::effective] = before;
    EXPECT_EQ(versionsOf(device), expected);
    expectRepair(device);
}

TEST_F(FaultsTest, WhereNothingCanBeRemovedScratchFilesDoNotPileUp) {
    Device device(InitialState::firstPolicy);
    for (int cycles = 0; cycles < 3; ++cycles) {
        (void)device.runCycle(offered, {"fsync:error=EIO", "unlink:error=EACCES"});
        EXPECT_THAT(device.leftovers(), SizeIs(4));  // activity log, policy, ETag, effective
        expectOneScratchFileEach(device);
    }
    expectHealing(device, InitialState::firstPolicy);
}

/// Two failures in one cycle. The first is a failure, the second a failure or the end of the
/// process.
struct Compound {
    Fault first;
    Fault second;
    bool isKilled = false;

    [[nodiscard]] std::string text(const CycleModel& model) const {
        return describe(model, first) + "; " +
               (isKilled ? "killed at " + describe(model.calls().at(second.index))
                         : describe(model, second));
    }

    /// strace keeps one rule for all calls of a name: two failures there are one rule's first and
    /// last. Absent when it cannot say it.
    [[nodiscard]] std::optional<std::vector<std::string>> injections(
        const CycleModel& model) const {
        const Call& a = model.calls().at(first.index);
        const Call& b = model.calls().at(second.index);
        if (a.name != b.name) {
            return {{failure(a, first.error, first.lasting),
                     isKilled ? kill(b) : failure(b, second.error, second.lasting)}};
        }
        const auto [least, most] = std::minmax(a.occurrence, b.occurrence);
        const bool isOneRule = !isKilled && least < most && first.error == second.error &&
                               first.lasting == Lasting::once && second.lasting == Lasting::once;
        if (!isOneRule) {
            return std::nullopt;
        }
        return {{a.name + ":error=" + nameOf(first.error) + ":when=" + std::to_string(least) +
                 ".." + std::to_string(most) + "+" + std::to_string(most - least)}};
    }
};

/// The numbers of all pairs of one seed, each of which can be had without the others.
class Draw {
  public:
    Draw(std::uint32_t seed, std::uint32_t number) {
        std::seed_seq sequence{seed, number};
        generator_.seed(sequence);
    }
    std::size_t below(std::size_t limit) { return generator_() % limit; }

    Compound compound(const CycleModel& model) {
        for (;;) {
            Compound pair{fault(model), fault(model), below(2) == 0};
            const bool isSayable = pair.injections(model).has_value();
            const bool hangs = mayKeepPipeOpen(model, pair.first) ||
                               (!pair.isKilled && mayKeepPipeOpen(model, pair.second));
            if (isSayable && !hangs) {
                return pair;
            }
        }
    }

  private:
    Fault fault(const CycleModel& model) {
        std::size_t index = 0;
        do {
            index = below(model.calls().size());
        } while (model.calls()[index].inChild);
        return {index, errors.at(below(errors.size())).number,
                below(2) == 0 ? Lasting::once : Lasting::fromThenOn};
    }

    /// After another failure a close may be any other.
    static bool mayKeepPipeOpen(const CycleModel& model, const Fault& fault) {
        return model.initial() == InitialState::firstPolicy &&
               model.calls().at(fault.index).kind == CallKind::close;
    }

    std::mt19937 generator_;
};

/// What may be logged about a failure: what failed, and nothing twice.
void expectNothingButStatedLines(Device& device, const CycleModel& model, const Compound& pair) {
    const auto good = model.goodOutcome().log;
    std::set<std::string> logged;
    for (const std::string& line : logOf(device)) {
        const auto reason = line.find(" failed: ");
        const std::string what = line.substr(0, reason);
        EXPECT_TRUE(logged.insert(what).second) << "twice: " << line;
        if (reason == std::string::npos) {
            EXPECT_TRUE(std::count(good.begin(), good.end(), line) == 1 ||
                        line == "default No usable profile — sleeping 30s and retrying")
                << line;
            continue;
        }
        const std::set<std::string> known{"error atomic write to /" + pathOf(File::policy),
                                          "error atomic write to /" + pathOf(File::tag),
                                          "error atomic write to /" + pathOf(File::effective),
                                          "error capture-policy write"};
        EXPECT_TRUE(known.contains(what)) << line;
        bool isTrue = false;
        // An old file that could not be removed is in the way, a file or directory that could not
        // be made is missing.
        for (const int error : {pair.first.error, pair.second.error, EEXIST, ENOENT}) {
            isTrue = isTrue || line.ends_with(": " + std::generic_category().message(error));
        }
        EXPECT_TRUE(isTrue) << line;
    }
}

void expectRecoveryFrom(const CycleModel& model, const Compound& pair) {
    Device device(model.initial());
    (void)device.runCycle(offered, pair.injections(model).value());
    const bool lives = device.pollsAgain();
    EXPECT_THAT(versionsOf(device), Each(Pair(_, Ne(torn))));
    expectOneScratchFileEach(device);
    expectNothingButStatedLines(device, model, pair);
    if (lives) {
        expectHealing(device, model.initial());
    } else {
        EXPECT_TRUE(pair.isKilled) << "it has ended or hangs";
        expectRecovery(device, model.initial());
    }
}

std::uint32_t numberFrom(const char* variable, std::uint32_t otherwise) {
    const char* const value = std::getenv(variable);
    return value == nullptr ? otherwise : static_cast<std::uint32_t>(std::stoul(value));
}

/// Pairs `first`, `first` + `step` and so on below `end`; or the one in ORVANE_PAIR alone.
void expectRecoveryFromPairs(std::uint32_t first, std::uint32_t step, std::uint32_t end) {
    const std::uint32_t seed = numberFrom("ORVANE_SEED", 1);
    std::cout << "ORVANE_SEED=" << seed << "\n";
    if (std::getenv("ORVANE_PAIR") != nullptr) {
        const std::uint32_t only = numberFrom("ORVANE_PAIR", 0);
        if (only % step != first) {
            return;
        }
        first = only;
        end = only + 1;
    }
    const std::array models{recorded(InitialState::firstPolicy),
                            recorded(InitialState::nextPolicy)};
    std::size_t killed = 0;
    std::size_t runs = 0;
    for (std::uint32_t number = first; number < end; number += step) {
        Draw draw(seed, number);
        const CycleModel& model = models.at(draw.below(models.size()));
        const Compound pair = draw.compound(model);
        SCOPED_TRACE("ORVANE_SEED=" + std::to_string(seed) +
                     " ORVANE_PAIR=" + std::to_string(number) + ": " + pair.text(model));
        expectRecoveryFrom(model, pair);
        ++runs;
        killed += pair.isKilled ? 1 : 0;
    }
    std::cout << runs << " pairs, of which " << killed << " with the end of the process\n";
}

TEST_F(FaultsTest, ASampleOfPairs) {
    expectRecoveryFromPairs(0, 1, 25);
}

constexpr std::uint32_t pairParts = 4;
class NightlyPairs : public FaultsTest, public ::testing::WithParamInterface<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Nightly, NightlyPairs, ::testing::Range(0U, pairParts));

TEST_P(NightlyPairs, TenThousandPairs) {
    expectRecoveryFromPairs(GetParam(), pairParts, numberFrom("ORVANE_PAIRS", 10000));
}

class NightlyFaults : public EachPart {};
INSTANTIATE_TEST_SUITE_P(Nightly, NightlyFaults, ::testing::ValuesIn(parts(4)), testNameOf);

TEST_P(NightlyFaults, EveryFailureOfAnyCallBreaksNoPromise) {
    const CycleModel model = recorded(part.initial);
    const auto faults = matrix(model);
    std::size_t runs = 0;
    for (std::size_t i = part.index; i < faults.size(); i += part.count) {
        expectPromisesKept(model, faults[i]);
        ++runs;
    }
    std::cout << runs << " of " << faults.size() << " failures\n";
}

}  // namespace
}  // namespace orvane::test
