#include "tools/simulate/Network.h"

#include <gtest/gtest.h>

#include "tests/simulate/Scenarios.h"

namespace {

TEST(ALink, IsTheTwoNodesInterfaces) {
    EXPECT_EQ(simulate::networkCommands(readPairWith("")),
              "link set lo up\n"
              "link add name master index 11 address 02:00:00:00:00:01 type veth peer name slave "
              "index 12 address 02:00:00:00:00:02\n"
              "link set dev master addrgenmode none arp off multicast on up\n"
              "link set dev slave addrgenmode none arp off multicast on up\n");
}

TEST(ABridge, ForwardsWhatIsMeantForTheNextNeighbour) {
    const auto scenario = simulate::parseScenario(
        "duration = 9\n[[node]]\nname = \"m\"\nrole = \"master\"\n[[bridge]]\nnodes = \"m\"\n",
        "x.toml");
    EXPECT_EQ(simulate::networkCommands(scenario),
              "link set lo up\n"
              "link add name bridge1 index 267 address 02:00:00:00:01:0b type bridge stp_state 0 "
              "mcast_snooping 0 group_fwd_mask 0x4000\n"
              "link set dev bridge1 addrgenmode none arp off multicast on up\n"
              "link add name m index 11 address 02:00:00:00:00:01 type veth peer name port-1 index "
              "268 address 02:00:00:00:01:0c\n"
              "link set dev port-1 master bridge1\n"
              "link set dev m addrgenmode none arp off multicast on up\n"
              "link set dev port-1 addrgenmode none arp off multicast on up\n");
}

}  // namespace
