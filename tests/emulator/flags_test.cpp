#include "emulator/flags.h"

#include "emulator/bad_input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::emulator {
namespace {

using namespace std::chrono_literals;

/// Of arguments with single spaces between them.
Flags flagsOf(const std::string& line) {
    std::istringstream words(line);
    std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
    std::vector<const char*> pointers(arguments.size());
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](const std::string& argument) { return argument.c_str(); });
    return readFlags(pointers);
}

std::string complaintAboutFlags(const std::string& line) {
    try {
        flagsOf(line);
        return "none";
    } catch (const BadInput& mistake) {
        return mistake.what();
    }
}

TEST(Flags, AllAreRead) {
    const Flags flags = flagsOf(
        "--key k --port 65535 --listen 0.0.0.0 --policy p --device d --tenant t --agent-slug s "
        "--agent-type y --api-url u --cert c --private-key q --port-file f --jitter --hold 60 "
        "--fail-every 3 --with 429 --seed 18446744073709551615 --record r "
        "--fault slow,device=x --fault garbage --version");
    EXPECT_EQ(flags.port, 65535);
    EXPECT_EQ(flags.address, "0.0.0.0");
    EXPECT_EQ(flags.account.apiKey, "k");
    EXPECT_EQ(flags.account.deviceToken, "d");
    EXPECT_EQ(flags.account.tenantSlug, "t");
    EXPECT_EQ(flags.account.agentSlug, "s");
    EXPECT_EQ(flags.account.agentType, "y");
    EXPECT_EQ(flags.account.apiUrl, "u");
    EXPECT_EQ(flags.policy, "p");
    EXPECT_EQ(flags.certificate, "c");
    EXPECT_EQ(flags.privateKey, "q");
    EXPECT_EQ(flags.portFile, "f");
    EXPECT_EQ(flags.record, "r");
    EXPECT_TRUE(flags.behavior.jitter);
    EXPECT_EQ(flags.behavior.longestHold, 60s);
    EXPECT_EQ(flags.behavior.failEvery, 3U);
    EXPECT_EQ(flags.behavior.failStatus, 429U);
    EXPECT_EQ(flags.seed, UINT64_MAX);
    ASSERT_EQ(flags.faults.size(), 2U);
    EXPECT_EQ(flags.faults[0].device, "x");
    EXPECT_EQ(flags.faults[1].kind, FaultKind::garbage);
    EXPECT_TRUE(flags.version);
    EXPECT_EQ(flagsOf("--tls t").tlsDirectory, "t");
}

TEST(Flags, ACheckHasItsOwn) {
    const Flags flags =
        flagsOf("--check https://h --key k --device d --tenant t --agent-slug s --ca c --wait 400");
    EXPECT_EQ(flags.checkedUrl, "https://h");
    EXPECT_EQ(flags.authority, "c");
    EXPECT_EQ(flags.wait, 400s);
    EXPECT_EQ(flagsOf("--check u").wait, 5s);
    EXPECT_TRUE(flagsOf("--check u --help").help);
    EXPECT_EQ(complaintAboutFlags("--check u --policy p"),
              "--policy does not go with --check; --help says what does");
    EXPECT_EQ(complaintAboutFlags("--check u --jitter"),
              "--jitter does not go with --check; --help says what does");
    EXPECT_EQ(complaintAboutFlags("--wait 2"), "--wait goes with --check only");
    EXPECT_EQ(complaintAboutFlags("--ca c"), "--ca goes with --check only");
    EXPECT_EQ(complaintAboutFlags("--check u --device d"),
              "to check the lookup of devices takes both --device and --tenant");
}

TEST(Flags, NoneIsNeeded) {
    const Flags flags = readFlags({});
    EXPECT_EQ(flags.address, "127.0.0.1");
    EXPECT_EQ(flags.port, 0);
    EXPECT_EQ(flags.account.apiKey, "local-key");
    EXPECT_FALSE(flags.seed);
}

TEST(Flags, WhatMakesNoSenseIsRefusedInALine) {
    EXPECT_EQ(complaintAboutFlags("--key"), "--key needs a value; --help lists the options");
    EXPECT_EQ(complaintAboutFlags("--tls --port 1"),
              "--tls needs a value; --help lists the options");
    EXPECT_EQ(complaintAboutFlags("--nonsense 1"),
              "there is no option \"--nonsense\"; --help lists them");
    EXPECT_EQ(complaintAboutFlags("stray"), "there is no option \"stray\"; --help lists them");
    EXPECT_EQ(complaintAboutFlags("--cert c"), "--cert and --private-key go together");
    EXPECT_EQ(complaintAboutFlags("--tls t --cert c --private-key k"),
              "--tls makes a certificate; leave out --cert and --private-key");
    EXPECT_EQ(complaintAboutFlags("--fault slw"),
              "--fault: there is no fault \"slw\"; orvane-control-plane --help lists them");
    const std::vector<const char*> empty{"--key", ""};
    EXPECT_THROW(readFlags(empty), BadInput);
}

TEST(Flags, ANumberOutOfItsRangeIsRefused) {
    EXPECT_EQ(complaintAboutFlags("--port 65536"),
              "--port: not a number from 0 to 65535: \"65536\"");
    for (const char* line : {"--port -1", "--port x", "--port 80x", "--fail-every 0",
                             "--fail-every 1000001", "--with 399", "--with 600", "--hold 301",
                             "--hold -1", "--seed -1", "--seed x", "--wait 0", "--wait 401"}) {
        EXPECT_THROW(flagsOf(line), BadInput) << line;
    }
}

TEST(Flags, HelpFitsOnAScreenAndNamesEveryFault) {
    const std::string help = usage();
    EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 24);
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
    for (const FaultDescription& fault : faultDescriptions()) {
        EXPECT_NE(help.find(fault.name), std::string::npos) << fault.name;
    }
    EXPECT_TRUE(flagsOf("--help").help);
}

}  // namespace
}  // namespace orvane::emulator
