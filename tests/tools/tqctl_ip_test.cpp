// tqctl_ip_test.cpp - the commands on IP addresses.
#include <gmock/gmock.h>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)

class TqctlIpTest : public tq_test::DeviceTest {};

TEST_F(TqctlIpTest, ParseShowsWhatAnAddressMeans) {
    EXPECT_TRUE(succeeds(tqctl("ip parse 192.168.1.10/24"),
                         "version=4\naddress=192.168.1.10\nprefix_length=24\nmask=255.255.255.0\n"
                         "broadcast=192.168.1.255\n"));
    EXPECT_TRUE(succeeds(tqctl("-j ip parse 10.0.0.1/255.0.0.0"),
                         "{\"version\":4,\"address\":\"10.0.0.1\",\"prefix_length\":8,"
                         "\"mask\":\"255.0.0.0\",\"broadcast\":\"10.255.255.255\"}\n"));
    EXPECT_TRUE(succeeds(tqctl("ip parse 10.0.0.1"),
                         "version=4\naddress=10.0.0.1\nprefix_length=32\nmask=255.255.255.255\n"
                         "broadcast=10.0.0.1\n"));
    EXPECT_TRUE(
        succeeds(tqctl("ip parse FE80::0:1/64"), "version=6\naddress=fe80::1\nprefix_length=64\n"));
    EXPECT_TRUE(succeeds(tqctl("ip parse ::"), "version=6\naddress=::\nprefix_length=128\n"));
}

TEST_F(TqctlIpTest, ParseRefusesWhatIsNoAddress) {
    for (const char* text :
         {"x", "''", "10.0.0.256", "10.0.0.1/33", "10.0.0.1/255.0.255.0", "::g", "::1/129",
          "::1/-1", "::1/", "::1/x", "::1/64x", "10.0.0.1x", "10.0.0.1.2", "10.0.0.1/",
          "10.0.0.1/24x", "10.0.0.1/24/8", "10.0.0.1/255.0.0.0x", "'10.0.0.1 '", "010.0.0.1"}) {
        EXPECT_TRUE(fails(tqctl(std::string("ip parse ") + text), kRefused, "is not an IP address"))
            << text;
    }
    EXPECT_TRUE(fails(tqctl("ip parse"), kUsage, "an argument is missing"));
}

TEST_F(TqctlIpTest, MaskConvertsBothWays) {
    EXPECT_TRUE(succeeds(tqctl("ip mask 24"), "255.255.255.0\n"));
    EXPECT_TRUE(succeeds(tqctl("ip mask 0"), "0.0.0.0\n"));
    EXPECT_TRUE(succeeds(tqctl("-j ip mask 32"), "{\"mask\":\"255.255.255.255\"}\n"));
    EXPECT_TRUE(succeeds(tqctl("ip mask 255.255.240.0"), "20\n"));
    EXPECT_TRUE(succeeds(tqctl("-j ip mask 0.0.0.0"), "{\"prefix_length\":0}\n"));
    for (const char* text : {"33", "-1", "x", "''", "255.0.255.0", "4294967320", "24x",
                             "255.0.0.0x", "255.0.0.0/8", "::"})
        EXPECT_TRUE(
            fails(tqctl(std::string("ip mask ") + text), kRefused, "neither a mask nor a length"))
            << text;
}

TEST_F(TqctlIpTest, BroadcastPrintsTheNetworksLastAddress) {
    EXPECT_TRUE(succeeds(tqctl("ip broadcast 192.168.1.10/24"), "192.168.1.255\n"));
    EXPECT_TRUE(
        succeeds(tqctl("-j ip broadcast 10.9.8.7/8"), "{\"broadcast\":\"10.255.255.255\"}\n"));
    EXPECT_TRUE(fails(tqctl("ip broadcast fe80::1/64"), kRefused, "IPv6 has no broadcast"));
    EXPECT_TRUE(fails(tqctl("ip broadcast x"), kRefused, "is not an IP address"));
}

}  // namespace
