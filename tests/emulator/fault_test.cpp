#include "emulator/fault.h"

#include "emulator/bad_input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

std::string complaintAboutFault(const std::string& text) {
    try {
        parseFault(text);
        return "none";
    } catch (const BadInput& mistake) {
        return mistake.what();
    }
}

std::string complaintAboutList(const std::string& text) {
    try {
        readFaults(text);
        return "none";
    } catch (const BadInput& mistake) {
        return mistake.what();
    }
}

TEST(Fault, IsReadFromAnArgument) {
    EXPECT_EQ(parseFault("garbage"), Fault{.kind = FaultKind::garbage});
    EXPECT_EQ(
        parseFault("slow,device=a=b,percent=30,seconds=7,delay=2"),
        (Fault{.kind = FaultKind::slow, .device = "a=b", .percent = 30, .lasts = 7s, .delay = 2s}));
}

TEST(Fault, AnOutageEndsByItself) {
    EXPECT_EQ(parseFault("outage").lasts, 60s);
    EXPECT_EQ(parseFault("outage,seconds=3").lasts, 3s);
    EXPECT_EQ(readFaults(R"([{"name":"outage"}])").at(0).lasts, 60s);
}

TEST(Fault, AMistakeIsNamed) {
    EXPECT_EQ(complaintAboutFault(""),
              "there is no fault \"\"; orvane-control-plane --help lists them");
    EXPECT_EQ(complaintAboutFault("slow,percent=101"),
              "a fault's percent is a number from 1 to 100, not \"101\"");
    EXPECT_EQ(complaintAboutFault("slow,percent"),
              "a fault's percent is a number from 1 to 100, not \"\"");
    EXPECT_EQ(complaintAboutFault("slow,speed=1"),
              "a fault has no \"speed\", only device, percent, seconds and delay");
    for (const char* text : {"slow,", "slow,percent=0", "slow,seconds=0", "slow,delay=86401",
                             "slow,delay=1.5", "Slow", "slow "}) {
        EXPECT_NE(complaintAboutFault(text), "none") << text;
    }
}

TEST(Fault, ListsAreReadFromJsonAndWrittenAsTheyWereRead) {
    const std::string text =
        R"([{"delay":3,"device":"a","name":"slow","percent":5,"seconds":9},{"name":"huge"}])";
    const auto faults = readFaults(text);
    ASSERT_EQ(faults.size(), 2U);
    EXPECT_EQ(faults[0], parseFault("slow,delay=3,device=a,percent=5,seconds=9"));
    EXPECT_EQ(faultsText(faults), text);
    EXPECT_EQ(faultsText(readFaults("[]")), "[]");
    EXPECT_EQ(readFaults(R"([{"name":"slow","percent":"7"}])").at(0).percent, 7U);
}

TEST(Fault, AListWithAMistakeIsRefusedWhole) {
    EXPECT_EQ(complaintAboutList("{"),
              R"(the faults are a JSON array, for example [{"name":"slow"}])");
    EXPECT_EQ(complaintAboutList(R"({"name":"slow"})"), complaintAboutList("{"));
    EXPECT_EQ(complaintAboutList(R"([{"name":"slow"},{}])"),
              "a fault is an object with a \"name\"");
    EXPECT_EQ(complaintAboutList(R"(["slow"])"), complaintAboutList("[{}]"));
    EXPECT_EQ(complaintAboutList(R"([{"name":7}])"), complaintAboutList("[{}]"));
    EXPECT_NE(complaintAboutList(R"([{"name":"slow","percent":1.5}])"), "none");
    EXPECT_NE(complaintAboutList(R"([{"name":"slow","percent":null}])"), "none");
}

TEST(Fault, EachKindHasANameOfItsOwn) {
    std::set<std::string> names;
    for (const FaultDescription& each : faultDescriptions()) {
        EXPECT_EQ(nameOf(each.kind), each.name);
        EXPECT_EQ(parseFault(each.name).kind, each.kind);
        EXPECT_NE(faultKindsText().find(each.name), std::string::npos);
        names.emplace(each.name);
    }
    EXPECT_EQ(names.size(), 18U);
}

TEST(Fault, StrikesTheDeviceThatItIsForAndNobodyElse) {
    const std::vector<Fault> faults{parseFault("slow,device=a"), parseFault("huge")};
    EXPECT_EQ(faultFor(faults, "a", 1, 0)->kind, FaultKind::slow);
    EXPECT_EQ(faultFor(faults, "b", 1, 0)->kind, FaultKind::huge);
    EXPECT_FALSE(faultFor(std::vector{faults[0]}, "b", 1, 0));
    EXPECT_FALSE(faultFor({}, "a", 1, 0));
}

TEST(Fault, OnlyAnOutageStrikesWhatIsNoPoll) {
    const std::vector<Fault> faults{parseFault("slow"), parseFault("outage")};
    EXPECT_EQ(faultFor(faults, "a", 0, 0)->kind, FaultKind::outage);
    EXPECT_EQ(faultFor(faults, "a", 1, 0)->kind, FaultKind::slow);
}

/// Which of 1,000 polls of a device are struck.
std::vector<bool> struck(unsigned percent, std::string_view device, std::uint64_t seed) {
    const std::vector<Fault> faults{{.kind = FaultKind::slow, .percent = percent}};
    std::vector<bool> result;
    for (std::uint64_t poll = 1; poll <= 1000; ++poll) {
        result.push_back(faultFor(faults, device, poll, seed).has_value());
    }
    return result;
}

TEST(Fault, StrikesItsShareOfThePolls) {
    for (const unsigned percent : {1U, 30U, 99U, 100U}) {
        const auto polls = struck(percent, "a", 1);
        const auto count = static_cast<double>(std::count(polls.begin(), polls.end(), true));
        EXPECT_NEAR(count, percent * 10.0, percent == 100 ? 0 : 45) << percent;
    }
}

TEST(Fault, TheSeedDecidesAndEachDeviceHasItsOwnChance) {
    EXPECT_EQ(struck(50, "a", 1), struck(50, "a", 1));
    EXPECT_NE(struck(50, "a", 1), struck(50, "a", 2));
    EXPECT_NE(struck(50, "a", 1), struck(50, "b", 1));
}

TEST(Fault, OfSeveralEachHasItsOwnChance) {
    const Fault half{.kind = FaultKind::slow, .percent = 50};
    const std::vector<Fault> two{half, {.kind = FaultKind::huge, .percent = 50}};
    unsigned huge = 0;
    for (std::uint64_t poll = 1; poll <= 1000; ++poll) {
        const auto fault = faultFor(two, "a", poll, 1);
        huge += fault && fault->kind == FaultKind::huge ? 1U : 0U;
    }
    EXPECT_NEAR(huge, 250.0, 45);
}

}  // namespace
}  // namespace orvane::emulator
