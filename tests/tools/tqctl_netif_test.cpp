// tqctl_netif_test.cpp - tqctl if, arp, route and resolve: what they print, what they change, and
// the exit codes.
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tools/tqctl.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

// The kernel notices a link in its own time.
constexpr const char* kUntilTheLinkIsUp =
    "until grep -qx up /sys/class/net/tq0/operstate; do sleep 0.01; done";
constexpr const char* kUntilTheLinkIsDown =
    "while grep -qx up /sys/class/net/tq0/operstate; do sleep 0.01; done";

// Each test has a pair of interfaces of its own, both up: tq0, and tq1 at the other end.
class TqctlNetif : public DeviceTest {
  protected:
    void SetUp() override {
        const CommandResult made = run_command(
            "ip link add tq0 address 02:00:00:00:00:01 type veth peer name tq1 && "
            "ip link set tq0 up && ip link set tq1 up");
        ASSERT_EQ(made.status, 0) << made.err;
        run_command(kUntilTheLinkIsUp);
    }

    void TearDown() override { EXPECT_EQ(run_command("ip link del tq0").status, 0); }

    static void give_address() {
        EXPECT_EQ(run_command("ip addr add 192.0.2.1/24 brd + dev tq0").status, 0);
    }
};

std::string sys(const std::string& file) {
    std::string text = read_file("/sys/class/net/tq0/" + file);
    text.pop_back();
    return text;
}

std::string addresses() {
    return run_command("ip -j -4 addr show dev tq0").out;
}

std::string neighbours() {
    return run_command("ip -j neigh show dev tq0").out;
}

std::vector<std::string> strings(const Json& array) {
    std::vector<std::string> strings;
    for (size_t i = 0; i < json_object_array_length(array.get()); i++)
        strings.emplace_back(json_object_get_string(json_object_array_get_idx(array.get(), i)));
    return strings;
}

// What all of them have in common.

TEST_F(TqctlNetif, AnInterfaceThatIsMissingEndsWithOne) {
    const std::vector<std::string> commands = {
        "if show nosuch0",
        "if up nosuch0",
        "if down nosuch0",
        "if set nosuch0 mtu=1400",
        "if set nosuch0 mac=02:00:00:00:00:09",
        "arp add nosuch0 192.0.2.7 02:00:00:00:00:09",
        "arp del nosuch0 192.0.2.7",
        "route gateway nosuch0",
    };
    for (const std::string& command : commands) {
        EXPECT_TRUE(fails(tqctl(command), kRefused, ": nosuch0: No such device\n")) << command;
    }
}

TEST_F(TqctlNetif, ANameThatIsTooLongIsNoOtherInterface) {
    ASSERT_EQ(run_command("ip link set tq1 name abcdefghijklmno").status, 0);
    EXPECT_EQ(tqctl("if show abcdefghijklmno").status, kDone);
    for (const std::string verb : {"if show ", "if down ", "route gateway "}) {
        EXPECT_TRUE(fails(tqctl(verb + "abcdefghijklmnop"), kRefused, "No such device")) << verb;
    }
    EXPECT_TRUE(fails(tqctl("if show ''"), kRefused, "No such device"));
}

TEST_F(TqctlNetif, WithoutPrivilegesAChangeEndsWithFour) {
    ASSERT_EQ(run_command("ip neigh add 192.0.2.7 lladdr 02:00:00:00:00:09 dev tq0").status, 0);
    const std::vector<std::string> commands = {
        "if up tq0",
        "if down tq0",
        "if set tq0 address=192.0.2.1",
        "if set tq0 mtu=1400",
        "if set tq0 mac=02:00:00:00:00:09",
        "arp add tq0 192.0.2.7 02:00:00:00:00:08",
        "arp del tq0 192.0.2.7",
    };
    const std::string prefix = kNobody + "$(command -v tqctl) ";
    for (const std::string& command : commands) {
        EXPECT_TRUE(fails(run_command(prefix + command), kNotPermitted, "Operation not permitted"))
            << command;
    }
    EXPECT_EQ(sys("mtu"), "1500");
    EXPECT_EQ(sys("address"), "02:00:00:00:00:01");
}

TEST_F(TqctlNetif, AnArgumentThatIsMissingEndsWithTwo) {
    for (const std::string command :
         {"if show", "if up", "if down", "if set", "if set tq0", "arp add", "arp add tq0 192.0.2.7",
          "arp del tq0", "route gateway", "resolve"}) {
        EXPECT_TRUE(fails(tqctl(command), kUsage, "an argument is missing\nusage: ")) << command;
    }
}

TEST_F(TqctlNetif, JsonOfAChangeIsAnEmptyObject) {
    for (const std::string command :
         {"if up tq0", "if down tq0", "if set tq0 mtu=1400",
          "arp add tq0 192.0.2.7 02:00:00:00:00:09", "arp del tq0 192.0.2.7"}) {
        EXPECT_TRUE(succeeds(tqctl("-j " + command), "{}\n")) << command;
    }
}

// if list

TEST_F(TqctlNetif, ListPrintsALineForEachInterface) {
    give_address();
    ASSERT_EQ(run_command("ip link set tq1 address 02:00:00:00:00:02 down").status, 0);
    run_command(kUntilTheLinkIsDown);
    const CommandResult result = tqctl("if list");
    EXPECT_EQ(result.status, kDone);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("lo              running 00:00:00:00:00:00 127.0.0.1\n"),
                      HasSubstr("\ntq0             up      02:00:00:00:00:01 192.0.2.1\n"),
                      HasSubstr("\ntq1             down    02:00:00:00:00:02 -\n")));
}

TEST_F(TqctlNetif, ListPrintsAnArrayOfWhatShowPrintsAsJson) {
    give_address();
    const Json array = parse(tqctl("-j if list").out);
    ASSERT_TRUE(array);
    std::vector<std::string> names;
    for (size_t i = 0; i < json_object_array_length(array.get()); i++) {
        json_object* row = json_object_array_get_idx(array.get(), i);
        names.emplace_back(json_object_get_string(json_object_object_get(row, "name")));
        const Json shown = parse(tqctl("-j if show " + names.back()).out);
        EXPECT_TRUE(json_object_equal(row, shown.get())) << names.back();
    }
    EXPECT_THAT(names, IsSupersetOf({"lo", "eth0", "eth1", "tq0", "tq1"}));
}

// if show

TEST_F(TqctlNetif, ShowPrintsWhatTheInterfaceHas) {
    EXPECT_TRUE(succeeds(tqctl("if show tq0"), "name=tq0\nindex=" + sys("ifindex") +
                                                   "\nup=true\nrunning=true\n"
                                                   "mac=02:00:00:00:00:01\nmtu=1500\n"));
    give_address();
    ASSERT_EQ(run_command("ip route add default via 192.0.2.254 dev tq0").status, 0);
    EXPECT_THAT(tqctl("if show tq0").out,
                HasSubstr("mtu=1500\naddress=192.0.2.1\nnetmask=255.255.255.0\n"
                          "broadcast=192.0.2.255\ngateway=192.0.2.254\n"));
}

TEST_F(TqctlNetif, ShowPrintsNumbersAndTruthAsJson) {
    give_address();
    ASSERT_EQ(run_command("ip link set tq1 down").status, 0);
    run_command(kUntilTheLinkIsDown);
    EXPECT_TRUE(succeeds(tqctl("-j if show tq0"),
                         "{\"name\":\"tq0\",\"index\":" + sys("ifindex") +
                             R"(,"up":true,"running":false,"mac":"02:00:00:00:00:01","mtu":1500,)"
                             R"("address":"192.0.2.1","netmask":"255.255.255.0",)"
                             "\"broadcast\":\"192.0.2.255\"}\n"));
}

// if up, if down

TEST_F(TqctlNetif, UpAndDownTakeTheInterfaceUpAndDown) {
    EXPECT_TRUE(succeeds(tqctl("if down tq0"), ""));
    EXPECT_EQ(std::stoul(sys("flags"), nullptr, 16) & 1U, 0U);
    EXPECT_TRUE(succeeds(tqctl("if up tq0"), ""));
    EXPECT_EQ(std::stoul(sys("flags"), nullptr, 16) & 1U, 1U);
}

// if set

TEST_F(TqctlNetif, SetChangesWhatItIsGiven) {
    EXPECT_TRUE(succeeds(tqctl("if set tq0 mtu=1400"), ""));
    EXPECT_EQ(sys("mtu"), "1400");
    EXPECT_TRUE(succeeds(tqctl("if set tq0 mac=02:aB:cd:Ef:01:23"), ""));
    EXPECT_EQ(sys("address"), "02:ab:cd:ef:01:23");
    EXPECT_TRUE(succeeds(tqctl("if set tq0 address=10.0.0.1"), ""));
    EXPECT_THAT(addresses(), HasSubstr(R"("local":"10.0.0.1","prefixlen":8)"));
}

TEST_F(TqctlNetif, SetAppliesTheKeysInTheirOwnOrder) {
    EXPECT_TRUE(succeeds(
        tqctl("if set tq0 mtu=1400 broadcast=192.0.2.30 netmask=255.255.255.224 address=192.0.2.1 "
              "mac=02:00:00:00:00:09"),
        ""));
    EXPECT_THAT(addresses(),
                HasSubstr(R"("local":"192.0.2.1","prefixlen":27,"broadcast":"192.0.2.30")"));
    EXPECT_EQ(sys("mtu"), "1400");
    EXPECT_EQ(sys("address"), "02:00:00:00:00:09");
}

TEST_F(TqctlNetif, SetOfAMisspelledSettingChangesNothing) {
    for (const std::string setting : {"mtu",
                                      "mtu=",
                                      "mtu=x",
                                      "mtu=1400x",
                                      "mtu=-1",
                                      "mtu=+1",
                                      "mtu=4294967296",
                                      "nothing=1",
                                      "=1",
                                      "mtu1=1",
                                      "address=",
                                      "address=192.0.2",
                                      "address=192.0.2.1/24",
                                      "address=192.0.2.256",
                                      "netmask=24",
                                      "broadcast=x",
                                      "mac=",
                                      "mac=02:00:00:00:00",
                                      "mac=02:00:00:00:00:0",
                                      "mac=02:00:00:00:00:009",
                                      "mac=02:00:00:00:00:0g",
                                      "mac=02-00-00-00-00-09",
                                      "mac=2:00:00:00:00:009",
                                      "mac=02:00:00:00:00:09 ",
                                      "mac=+2:00:00:00:00:09"}) {
        EXPECT_TRUE(fails(tqctl("if set tq0 mtu=1300 " + quote(setting)), kUsage,
                          "'" + setting + "' is not a setting\nusage: "))
            << setting;
    }
    EXPECT_EQ(sys("mtu"), "1500");
}

TEST_F(TqctlNetif, SetStopsAtARefusalAndSaysWhichItWas) {
    EXPECT_TRUE(fails(tqctl("if set tq0 mtu=1400 netmask=255.0.255.0 address=192.0.2.1"), kRefused,
                      "tqctl: if set: netmask=255.0.255.0: Invalid argument\n"));
    EXPECT_THAT(addresses(), HasSubstr(R"("local":"192.0.2.1","prefixlen":24)"));
    EXPECT_EQ(sys("mtu"), "1500");
    EXPECT_TRUE(fails(tqctl("if set tq0 mtu=1"), kRefused, "mtu=1: Invalid argument\n"));
    EXPECT_TRUE(fails(tqctl("if set tq0 mac=01:00:00:00:00:09"), kRefused,
                      "mac=01:00:00:00:00:09: Cannot assign requested address\n"));
    EXPECT_THAT(tqctl("if show tq0").out, HasSubstr("up=false\n"));
}

// arp

TEST_F(TqctlNetif, ArpAddsAndDeletesAnEntry) {
    EXPECT_TRUE(succeeds(tqctl("arp add tq0 192.0.2.7 02:00:00:00:00:09"), ""));
    EXPECT_THAT(neighbours(), AllOf(HasSubstr(R"("dst":"192.0.2.7","lladdr":"02:00:00:00:00:09")"),
                                    Not(HasSubstr("PERMANENT"))));
    EXPECT_TRUE(succeeds(tqctl("arp del tq0 192.0.2.7"), ""));
    EXPECT_THAT(neighbours(), Not(HasSubstr("lladdr")));
}

TEST_F(TqctlNetif, ArpAddsAnEntryThatStays) {
    EXPECT_TRUE(succeeds(tqctl("arp add tq0 192.0.2.7 02:00:00:00:00:09 permanent"), ""));
    EXPECT_THAT(neighbours(), HasSubstr(R"("lladdr":"02:00:00:00:00:09","state":["PERMANENT"])"));
}

TEST_F(TqctlNetif, ArpDelOfAnEntryThatIsMissingEndsWithOne) {
    EXPECT_TRUE(fails(tqctl("arp del tq0 192.0.2.7"), kRefused, "192.0.2.7: no such entry\n"));
}

TEST_F(TqctlNetif, ArpTakesNoOtherWords) {
    EXPECT_TRUE(fails(tqctl("arp add tq0 x 02:00:00:00:00:09"), kUsage,
                      "'x' is not an IPv4 address\nusage: "));
    EXPECT_TRUE(
        fails(tqctl("arp add tq0 192.0.2.7 x"), kUsage, "'x' is not a hardware address\nusage: "));
    EXPECT_TRUE(fails(tqctl("arp add tq0 192.0.2.7 02:00:00:00:00:09 x"), kUsage,
                      "'x' is not 'permanent'\nusage: "));
    EXPECT_TRUE(fails(tqctl("arp del tq0 x"), kUsage, "'x' is not an IPv4 address\nusage: "));
    EXPECT_THAT(neighbours(), Not(HasSubstr("lladdr")));
}

// route

TEST_F(TqctlNetif, GatewayIsPrinted) {
    give_address();
    ASSERT_EQ(run_command("ip route add default via 192.0.2.254 dev tq0").status, 0);
    EXPECT_TRUE(succeeds(tqctl("route gateway tq0"), "192.0.2.254\n"));
    EXPECT_TRUE(succeeds(tqctl("-j route gateway tq0"), "{\"gateway\":\"192.0.2.254\"}\n"));
}

TEST_F(TqctlNetif, GatewayThatIsMissingEndsWithOne) {
    give_address();
    EXPECT_TRUE(fails(tqctl("route gateway tq0"), kRefused, "tq0: no gateway\n"));
}

// resolve

class TqctlResolve : public DeviceTest {
  protected:
    TqctlResolve() {
        unlink("/etc/resolv.conf");
        write_file("/etc/resolv.conf", "nameserver 127.0.0.2\noptions timeout:1 attempts:1\n");
        write_file("/etc/nsswitch.conf", "hosts: files\n");
        write_file("/etc/hosts", "192.0.2.31 many\n192.0.2.30 many\n2001:db8::5 six\n");
    }
};

TEST_F(TqctlResolve, PrintsTheAddressesInTheirOrder) {
    EXPECT_TRUE(succeeds(tqctl("resolve many"), "192.0.2.31\n192.0.2.30\n"));
    EXPECT_THAT(strings(parse(tqctl("-j resolve many").out)),
                ElementsAre("192.0.2.31", "192.0.2.30"));
}

TEST_F(TqctlResolve, AnUnknownNameEndsWithOne) {
    EXPECT_TRUE(fails(tqctl("resolve unknown"), kRefused, "tqctl: resolve: unknown: Unknown host"));
    EXPECT_EQ(tqctl("resolve six").status, kRefused);
}

TEST_F(TqctlResolve, WithoutAnAnswerEndsWithThree) {
    write_file("/etc/nsswitch.conf", "hosts: files dns\n");
    EXPECT_TRUE(fails(tqctl("resolve name.test"), kBusy, "name.test: Host name lookup failure\n"));
}

}  // namespace
