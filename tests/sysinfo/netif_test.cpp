// netif_test.cpp - interfaces, the ARP table, gateways and host names: each change as the kernel
// itself shows it, each request as it reaches the kernel.
#include "tq/netif.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/random.h"

namespace {

// What gethostbyname answers in the resolver's place.
thread_local hostent* made_up_host = nullptr;

}  // namespace

extern "C" hostent* replaceable_gethostbyname(const char* name) asm("gethostbyname");

hostent* replaceable_gethostbyname(const char* name) {
    static const auto next =
        reinterpret_cast<hostent* (*)(const char*)>(dlsym(RTLD_NEXT, "gethostbyname"));
    return made_up_host ? made_up_host : next(name);
}

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tq_test::as_nobody;
using tq_test::DeviceTest;
using tq_test::LogCapture;
using tq_test::open_descriptors;
using tq_test::read_file;
using tq_test::run_command;
using tq_test::ScopedProc;
using tq_test::seeded;
using tq_test::write_file;
using tq_test::faults::AnswerIoctl;
using tq_test::faults::count;
using tq_test::faults::Fail;

using Mac = std::array<uint8_t, 6>;
using Ip = std::array<uint8_t, 4>;

constexpr const char* kIf = "tq0";
constexpr const char* kUnknown = "nosuchif0";
constexpr const char* kFirstMac = "02:00:00:00:00:01";
constexpr Mac kMac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr Ip kNeighbour = {192, 0, 2, 77};
constexpr uint32_t kUntouched = 0x5a5a5a5a;

uint32_t inet(const char* text) {
    return inet_addr(text);
}

void must_run(const std::string& command) {
    const tq_test::CommandResult result = run_command(command);
    ASSERT_EQ(result.status, 0) << command << ": " << result.err;
}

// The kernel's own view.

std::string sys(const std::string& ifname, const std::string& file) {
    std::string text = read_file("/sys/class/net/" + ifname + "/" + file);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// The kernel notices a link in its own time.
void wait_for_operstate(const std::string& state) {
    while (sys(kIf, "operstate") != state)
        usleep(1000);
}

unsigned long flags_of(const std::string& ifname) {
    return std::stoul(sys(ifname, "flags"), nullptr, 16);
}

bool is_up(const std::string& ifname) {
    return (flags_of(ifname) & IFF_UP) != 0;
}

std::string addresses_of(const std::string& ifname) {
    return run_command("ip -j -4 addr show dev " + ifname).out;
}

std::string neighbours_of(const std::string& ifname) {
    return run_command("ip -j neigh show dev " + ifname).out;
}

std::string name_in(const ifreq& request) {
    return {request.ifr_name, IFNAMSIZ};
}

// No further descriptor can be opened until the scope ends.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &old_);
        const rlimit none = {0, old_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &old_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit old_{};
};

// The requests that reach the kernel, as they were before it answered.
template <typename Record>
class Recorder {
  public:
    struct Entry {
        unsigned long operation;
        Record record;
    };

    const std::vector<Entry>& entries() const { return entries_; }
    std::vector<unsigned long> operations() const {
        std::vector<unsigned long> operations;
        for (const Entry& entry : entries_)
            operations.push_back(entry.operation);
        return operations;
    }

  private:
    std::vector<Entry> entries_;
    AnswerIoctl observer_{[this](unsigned long operation, void* record) -> std::optional<int> {
        Record copy;
        memcpy(&copy, record, sizeof(copy));
        entries_.push_back({operation, copy});
        return std::nullopt;
    }};
};

// A network without interfaces, until the scope ends. The kernel takes it apart by itself; to
// delete an interface would be to wait for that.
class OwnNetwork {
  public:
    OwnNetwork() { EXPECT_EQ(unshare(CLONE_NEWNET), 0) << strerror(errno); }
    ~OwnNetwork() {
        EXPECT_EQ(setns(device_, CLONE_NEWNET), 0) << strerror(errno);
        close(device_);
    }
    OwnNetwork(const OwnNetwork&) = delete;
    OwnNetwork& operator=(const OwnNetwork&) = delete;

  private:
    const int device_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
};

// Each test has a pair of interfaces of its own, both up: tq0, and tq1 at the other end of its
// cable. No call logs anything or leaves a descriptor open.
class Netif : public DeviceTest {
  protected:
    void SetUp() override {
        must_run(
            "printf '%s\\n' 'link add tq0 address 02:00:00:00:00:01 type veth peer name tq1' "
            "'link set tq0 up' 'link set tq1 up' | ip -batch -");
        wait_for_operstate("up");
        tq_test::faults::reset();
        descriptors_ = open_descriptors();
    }

    void TearDown() override {
        EXPECT_EQ(open_descriptors(), descriptors_);
        EXPECT_THAT(log_.take(), IsEmpty());
    }

    static void give_address() { must_run("ip addr add 192.0.2.1/24 brd + dev tq0"); }

    LogCapture log_;

  private:
    const OwnNetwork network_;
    // /sys shows the network of the one who mounts it.
    const tq_test::ScopedMount sys_{"sysfs", "/sys", "sysfs", 0, ""};
    std::vector<int> descriptors_;
};

class Flags : public Netif {};
class Addresses : public Netif {};
class HardwareAddress : public Netif {};
class SetInterface : public Netif {};
class IndexAndMtu : public Netif {};
class Gateway : public Netif {};
class Arp : public Netif {};

// The frame of all functions that name an interface.

struct Call {
    const char* name;
    std::function<int(const char* ifname)> run;
    unsigned ioctls;
    int on_unknown_name = -1;
    int on_null_name = -1;
    int without_socket = -1;
};

uint32_t value = kUntouched;
Mac mac_buffer{};
const uint32_t kAddress = inet("192.0.2.9");
const uint32_t kMask = inet("255.255.255.0");
const uint32_t kBroadcast = inet("192.0.2.255");

const std::vector<Call>& calls() {
    static const std::vector<Call> kCalls = {
        {"if_is_up", if_is_up, 1, 0, 0, 0},
        {"if_is_running", if_is_running, 1, 0, 0, 0},
        {"set_if_flag", [](const char* name) { return set_if_flag(name, 1); }, 2, -1, -1, -10},
        {"get_if_addr", [](const char* name) { return get_if_addr(name, &value); }, 1},
        {"set_if_addr", [](const char* name) { return set_if_addr(name, &kAddress); }, 1},
        {"get_if_netmask", [](const char* name) { return get_if_netmask(name, &value); }, 1},
        {"set_if_netmask", [](const char* name) { return set_if_netmask(name, &kMask); }, 1},
        {"get_if_broadcast_addr",
         [](const char* name) { return get_if_broadcast_addr(name, &value); }, 1},
        {"set_if_broadcast_addr",
         [](const char* name) { return set_if_broadcast_addr(name, &kBroadcast); }, 1},
        {"get_if_mac",
         [](const char* name) { return get_if_mac(name, mac_buffer.data(), sizeof(mac_buffer)); },
         1},
        {"set_if_mac", [](const char* name) { return set_if_mac(name, kMac.data()); }, 4, 0},
        {"get_if_index", [](const char* name) { return get_if_index(name, &value); }, 1},
        {"set_interface",
         [](const char* name) { return set_interface(name, &kAddress, &kMask, kMac.data()); }, 6},
        {"set_if_mtu", [](const char* name) { return set_if_mtu(name, 1400); }, 1},
        {"get_if_mtu", [](const char* name) { return get_if_mtu(name, &value); }, 1},
        {"add_arp",
         [](const char* name) { return add_arp(name, kNeighbour.data(), kMac.data(), 0); }, 1},
        {"delete_arp",
         [](const char* name) { return delete_arp(name, kNeighbour.data(), kMac.data(), 0); }, 1},
        {"del_arp_by_ip", [](const char* name) { return del_arp_by_ip(name, kNeighbour.data()); },
         1},
    };
    return kCalls;
}

bool is_getter(const Call& call) {
    const std::string name = call.name;
    return name.starts_with("get_") || name.starts_with("if_is_");
}

TEST_F(Netif, RejectsANullNameInSilenceAndAsksNobody) {
    errno = 0;
    for (const Call& call : calls()) {
        EXPECT_EQ(call.run(nullptr), call.on_null_name) << call.name;
    }
    EXPECT_EQ(get_if_gateway(nullptr, &value), -1);
    EXPECT_EQ(count("socket"), 0U);
    EXPECT_EQ(count("fopen"), 0U);
    EXPECT_EQ(errno, 0);
}

TEST_F(Netif, RejectsANullOutputOrInputInSilenceAndAsksNobody) {
    EXPECT_EQ(get_if_addr(kIf, nullptr), -1);
    EXPECT_EQ(set_if_addr(kIf, nullptr), -1);
    EXPECT_EQ(get_if_netmask(kIf, nullptr), -1);
    EXPECT_EQ(set_if_netmask(kIf, nullptr), -1);
    EXPECT_EQ(get_if_broadcast_addr(kIf, nullptr), -1);
    EXPECT_EQ(set_if_broadcast_addr(kIf, nullptr), -1);
    EXPECT_EQ(get_if_mac(kIf, nullptr, 6), -1);
    EXPECT_EQ(set_if_mac(kIf, nullptr), -1);
    EXPECT_EQ(get_if_index(kIf, nullptr), -1);
    EXPECT_EQ(get_if_mtu(kIf, nullptr), -1);
    EXPECT_EQ(get_if_gateway(kIf, nullptr), -1);
    EXPECT_EQ(add_arp(kIf, nullptr, kMac.data(), 0), -1);
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), nullptr, 0), -1);
    EXPECT_EQ(delete_arp(kIf, nullptr, kMac.data(), 0), -1);
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), nullptr, 0), -1);
    EXPECT_EQ(del_arp_by_ip(kIf, nullptr), -1);
    EXPECT_EQ(count("socket"), 0U);
    EXPECT_EQ(count("fopen"), 0U);
}

TEST_F(Netif, AnswersForAnInterfaceThatDoesNotExist) {
    for (const Call& call : calls()) {
        value = kUntouched;
        errno = 0;
        EXPECT_EQ(call.run(kUnknown), call.on_unknown_name) << call.name;
        EXPECT_EQ(value, kUntouched) << call.name;
        EXPECT_EQ(errno, ENODEV) << call.name;
    }
}

TEST_F(Netif, AnswersWithoutASocketAndLeavesErrnoToTheCause) {
    for (const Call& call : calls()) {
        const NoDescriptors none;
        errno = 0;
        EXPECT_EQ(call.run(kIf), call.without_socket) << call.name;
        EXPECT_EQ(errno, EMFILE) << call.name;
    }
    EXPECT_EQ(count("ioctl"), 0U);
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
}

TEST_F(Netif, AsksTheKernelAsOftenAsTheJobNeeds) {
    give_address();
    for (const Call& call : calls()) {
        must_run("ip neigh replace 192.0.2.77 lladdr 02:00:00:00:00:77 dev tq0");
        tq_test::faults::reset();
        const int result = call.run(kIf);
        EXPECT_EQ(result, std::string(call.name).starts_with("if_is_") ? 1 : 0) << call.name;
        EXPECT_EQ(count("socket"), 1U) << call.name;
        EXPECT_EQ(count("ioctl"), call.ioctls) << call.name;
        EXPECT_EQ(count("close"), 1U) << call.name;
    }
}

// A failure leaves errno as the kernel's refusal set it, whichever step was refused.
TEST_F(Netif, FailsWithEachOfItsRequests) {
    give_address();
    for (const Call& call : calls()) {
        for (unsigned nth = 1; nth <= call.ioctls; nth++) {
            const Fail fail("ioctl", nth, ENOTTY);
            errno = 0;
            const int result = call.run(kIf);
            const bool is_flag_read = (std::string(call.name) == "set_if_mac" && nth == 1) ||
                                      (std::string(call.name) == "set_interface" && nth == 3);
            const bool is_silent = is_flag_read || std::string(call.name).starts_with("if_is_");
            EXPECT_EQ(result, is_silent ? 0 : -1) << call.name << ", request " << nth;
            EXPECT_EQ(errno, ENOTTY) << call.name << ", request " << nth;
            EXPECT_TRUE(fail.fired());
        }
    }
}

TEST_F(Netif, LetsNobodyReadButNotChange) {
    give_address();
    for (const Call& call : calls()) {
        if (is_getter(call)) {
            EXPECT_GE(as_nobody([&] { return call.run(kIf); }), 0) << call.name;
        } else {
            EXPECT_EQ(as_nobody([&] { return call.run(kIf) == -1 && errno == EPERM; }), 1)
                << call.name;
        }
    }
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_TRUE(is_up(kIf));
}

TEST_F(Netif, SocketsAreNotForChildren) {
    const std::vector<int> before = open_descriptors();
    std::vector<int> flags;
    const AnswerIoctl observer([&](unsigned long, void*) -> std::optional<int> {
        for (const int fd : open_descriptors()) {
            if (std::ranges::find(before, fd) == before.end()) flags.push_back(fcntl(fd, F_GETFD));
        }
        return std::nullopt;
    });
    if_is_up(kIf);
    EXPECT_THAT(flags, ElementsAre(FD_CLOEXEC));
}

// The kernel looks at 15 bytes of a name, so any longer one means the interface that they name.
TEST_F(Netif, CutsALongNameAsTheKernelDoes) {
    must_run("ip link set tq0 down && ip link set tq0 name abcdefghijklmno mtu 1234");
    for (const char* name : {"abcdefghijklmno", "abcdefghijklmnop", "abcdefghijklmnopqrstuvwxyz"}) {
        uint32_t mtu = 0;
        EXPECT_EQ(get_if_mtu(name, &mtu), 0) << name;
        EXPECT_EQ(mtu, 1234U) << name;
        EXPECT_EQ(set_if_flag(name, 1), 0) << name;
        EXPECT_TRUE(is_up("abcdefghijklmno")) << name;
        EXPECT_EQ(set_if_flag(name, 0), 0) << name;
    }
    uint32_t mtu = 0;
    EXPECT_EQ(get_if_mtu("abcdefghijklmn", &mtu), -1);
}

TEST_F(Netif, PutsAtMostSixteenBytesOfANameIntoARequest) {
    const Recorder<ifreq> recorder;
    uint32_t mtu = 0;
    get_if_mtu("abcdefghijklmno", &mtu);
    get_if_mtu("abcdefghijklmnop", &mtu);
    get_if_mtu("abcdefghijklmnopqrstuvwxyz", &mtu);
    get_if_mtu("a", &mtu);
    std::vector<std::string> names;
    for (const auto& entry : recorder.entries())
        names.push_back(name_in(entry.record));
    EXPECT_THAT(names, ElementsAre(std::string("abcdefghijklmno\0", 16), "abcdefghijklmnop",
                                   "abcdefghijklmnop", "a" + std::string(15, '\0')));
}

TEST_F(Netif, AnEmptyNameIsNoInterface) {
    EXPECT_EQ(if_is_up(""), 0);
    EXPECT_EQ(get_if_index("", &value), -1);
    EXPECT_EQ(set_if_mtu("", 1400), -1);
}

TEST_F(Netif, RunsFromSeveralThreadsAtOnce) {
    must_run("ip link set tq0 mtu 1301 && ip link set tq1 mtu 1302");
    std::array<int, 4> failures{};
    {
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < failures.size(); i++) {
            threads.emplace_back([i, &failures] {
                const bool first = i % 2 == 0;
                for (int round = 0; round < 50; round++) {
                    uint32_t mtu = 0;
                    const int result = get_if_mtu(first ? "tq0" : "tq1", &mtu);
                    if (result != 0 || mtu != (first ? 1301U : 1302U)) failures[i]++;
                }
            });
        }
    }
    EXPECT_THAT(failures, Each(0));
}

// if_is_up, if_is_running, set_if_flag

TEST_F(Flags, TellsWhetherAnInterfaceIsUp) {
    EXPECT_EQ(if_is_up(kIf), 1);
    must_run("ip link set tq0 down");
    EXPECT_EQ(if_is_up(kIf), 0);
}

TEST_F(Flags, RunsOnlyWhereTheLinkIsThere) {
    EXPECT_EQ(if_is_running(kIf), 1);
    must_run("ip link set tq1 down");
    wait_for_operstate("lowerlayerdown");
    EXPECT_EQ(if_is_up(kIf), 1);
    EXPECT_EQ(if_is_running(kIf), 0);
}

TEST_F(Flags, TakesAnInterfaceDownAndUp) {
    const unsigned long flags = flags_of(kIf);
    EXPECT_EQ(set_if_flag(kIf, 0), 0);
    EXPECT_EQ(flags_of(kIf), flags & ~static_cast<unsigned long>(IFF_UP));
    EXPECT_EQ(set_if_flag(kIf, 1), 0);
    EXPECT_EQ(flags_of(kIf), flags);
    EXPECT_EQ(set_if_flag(kIf, 0), 0);
    EXPECT_EQ(set_if_flag(kIf, 0x80000000), 0);
    EXPECT_EQ(flags_of(kIf), flags);
}

TEST_F(Flags, AreSetTwiceWithoutHarm) {
    EXPECT_EQ(set_if_flag(kIf, 1), 0);
    EXPECT_TRUE(is_up(kIf));
    EXPECT_EQ(set_if_flag(kIf, 0), 0);
    EXPECT_EQ(set_if_flag(kIf, 0), 0);
    EXPECT_FALSE(is_up(kIf));
}

TEST_F(Flags, LeavesTheOthersAlone) {
    must_run("ip link set tq0 promisc on && ip link set tq0 allmulticast on");
    const unsigned long kept = IFF_PROMISC | IFF_ALLMULTI;
    EXPECT_EQ(set_if_flag(kIf, 0), 0);
    EXPECT_EQ(flags_of(kIf) & kept, kept);
    EXPECT_EQ(set_if_flag(kIf, 1), 0);
    EXPECT_EQ(flags_of(kIf) & kept, kept);
}

TEST_F(Flags, WritesBackAllSixteenBitsButTheOne) {
    std::vector<unsigned> written;
    const AnswerIoctl kernel([&](unsigned long operation, void* argument) -> std::optional<int> {
        auto* request = static_cast<ifreq*>(argument);
        if (operation == SIOCGIFFLAGS) request->ifr_flags = static_cast<short>(0xffff);
        if (operation == SIOCSIFFLAGS) written.push_back(static_cast<uint16_t>(request->ifr_flags));
        return 0;
    });
    EXPECT_EQ(set_if_flag(kIf, 0), 0);
    EXPECT_EQ(set_if_flag(kIf, 1), 0);
    EXPECT_THAT(written, ElementsAre(0xfffeU, 0xffffU));
}

TEST_F(Flags, LooksAtItsOwnBitOnly) {
    short flags = 0;
    const AnswerIoctl kernel([&](unsigned long, void* argument) -> std::optional<int> {
        static_cast<ifreq*>(argument)->ifr_flags = flags;
        return 0;
    });
    flags = 0x1;
    EXPECT_EQ(std::pair(if_is_up(kIf), if_is_running(kIf)), std::pair(1, 0));
    flags = 0x40;
    EXPECT_EQ(std::pair(if_is_up(kIf), if_is_running(kIf)), std::pair(0, 1));
    flags = static_cast<short>(~0x41);
    EXPECT_EQ(std::pair(if_is_up(kIf), if_is_running(kIf)), std::pair(0, 0));
}

TEST_F(Flags, OfARequestThatFailedAreNotLookedAt) {
    const AnswerIoctl kernel([](unsigned long, void* argument) -> std::optional<int> {
        static_cast<ifreq*>(argument)->ifr_flags = -1;
        return -1;
    });
    EXPECT_EQ(if_is_up(kIf), 0);
    EXPECT_EQ(if_is_running(kIf), 0);
    EXPECT_EQ(set_if_flag(kIf, 1), -1);
}

// Addresses

TEST_F(Addresses, AreThoseThatTheKernelHas) {
    give_address();
    uint32_t address = 0;
    uint32_t mask = 0;
    uint32_t broadcast = 0;
    EXPECT_EQ(get_if_addr(kIf, &address), 0);
    EXPECT_EQ(get_if_netmask(kIf, &mask), 0);
    EXPECT_EQ(get_if_broadcast_addr(kIf, &broadcast), 0);
    EXPECT_EQ(address, inet("192.0.2.1"));
    EXPECT_EQ(mask, inet("255.255.255.0"));
    EXPECT_EQ(broadcast, inet("192.0.2.255"));
}

TEST_F(Addresses, CrossTheInterfaceInNetworkByteOrder) {
    give_address();
    uint32_t address = 0;
    EXPECT_EQ(get_if_addr(kIf, &address), 0);
    Ip bytes{};
    memcpy(bytes.data(), &address, sizeof(address));
    EXPECT_THAT(bytes, ElementsAre(192, 0, 2, 1));
}

TEST_F(Addresses, AreAskedForByTheirOwnRequests) {
    const Recorder<ifreq> recorder;
    uint32_t address = 0;
    get_if_addr(kIf, &address);
    get_if_netmask(kIf, &address);
    get_if_broadcast_addr(kIf, &address);
    EXPECT_THAT(recorder.operations(), ElementsAre(SIOCGIFADDR, SIOCGIFNETMASK, SIOCGIFBRDADDR));
}

TEST_F(Addresses, OfAnInterfaceWithoutOneAreAFailure) {
    uint32_t got = kUntouched;
    EXPECT_EQ(get_if_addr(kIf, &got), -1);
    EXPECT_EQ(get_if_netmask(kIf, &got), -1);
    EXPECT_EQ(get_if_broadcast_addr(kIf, &got), -1);
    EXPECT_EQ(set_if_netmask(kIf, &kMask), -1);
    EXPECT_EQ(set_if_broadcast_addr(kIf, &kBroadcast), -1);
    EXPECT_EQ(got, kUntouched);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST_F(Addresses, TheFirstOfSeveralIsGiven) {
    must_run("ip addr add 192.0.2.5/24 dev tq0 && ip addr add 198.51.100.5/24 dev tq0");
    uint32_t address = 0;
    EXPECT_EQ(get_if_addr(kIf, &address), 0);
    EXPECT_EQ(address, inet("192.0.2.5"));
}

TEST_F(Addresses, ABroadcastAddressThatIsNotSetIsZero) {
    must_run("ip addr add 192.0.2.1/24 dev tq0");
    uint32_t broadcast = kUntouched;
    EXPECT_EQ(get_if_broadcast_addr(kIf, &broadcast), 0);
    EXPECT_EQ(broadcast, 0U);
}

TEST_F(Addresses, AreSetOneByOne) {
    EXPECT_EQ(set_if_addr(kIf, &kAddress), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":24)"));
    const uint32_t mask = inet("255.255.255.128");
    EXPECT_EQ(set_if_netmask(kIf, &mask), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":25)"));
    const uint32_t broadcast = inet("192.0.2.126");
    EXPECT_EQ(set_if_broadcast_addr(kIf, &broadcast), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("broadcast":"192.0.2.126")"));
}

TEST_F(Addresses, ANewOneReplacesTheOldWithTheMaskOfItsClass) {
    must_run("ip addr add 192.0.2.1/30 dev tq0");
    const uint32_t address = inet("10.1.2.3");
    EXPECT_EQ(set_if_addr(kIf, &address), 0);
    EXPECT_THAT(addresses_of(kIf),
                AllOf(HasSubstr(R"("local":"10.1.2.3","prefixlen":8,"broadcast":"10.255.255.255")"),
                      Not(HasSubstr("192.0.2.1"))));
}

TEST_F(Addresses, ZeroTakesTheAddressAway) {
    give_address();
    const uint32_t none = 0;
    EXPECT_EQ(set_if_addr(kIf, &none), 0);
    EXPECT_THAT(addresses_of(kIf), Not(HasSubstr("192.0.2.1")));
}

TEST_F(Addresses, AMaskWithAHoleIsRefused) {
    give_address();
    const uint32_t mask = inet("255.0.255.0");
    EXPECT_EQ(set_if_netmask(kIf, &mask), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("prefixlen":24)"));
}

TEST_F(Addresses, RequestsHoldTheNameTheFamilyAndTheAddress) {
    give_address();
    const Recorder<ifreq> recorder;
    set_if_addr(kIf, &kAddress);
    set_if_netmask(kIf, &kMask);
    set_if_broadcast_addr(kIf, &kBroadcast);
    EXPECT_THAT(recorder.operations(), ElementsAre(SIOCSIFADDR, SIOCSIFNETMASK, SIOCSIFBRDADDR));
    const std::array<uint32_t, 3> addresses = {kAddress, kMask, kBroadcast};
    for (size_t i = 0; i < addresses.size(); i++) {
        const ifreq& request = recorder.entries()[i].record;
        EXPECT_EQ(name_in(request), kIf + std::string(13, '\0'));
        sockaddr_in inet{};
        memcpy(&inet, &request.ifr_addr, sizeof(inet));
        EXPECT_EQ(inet.sin_family, AF_INET);
        EXPECT_EQ(inet.sin_port, 0);
        EXPECT_EQ(inet.sin_addr.s_addr, addresses[i]);
        EXPECT_THAT(inet.sin_zero, Each(0));
    }
}

// Hardware address

TEST_F(HardwareAddress, IsCopiedInSixBytes) {
    std::array<uint8_t, 8> mac{};
    mac.fill(0x5a);
    EXPECT_EQ(get_if_mac(kIf, mac.data(), static_cast<int>(mac.size())), 0);
    EXPECT_THAT(mac, ElementsAre(2, 0, 0, 0, 0, 1, 0x5a, 0x5a));
    EXPECT_EQ(get_if_mac(kIf, mac.data(), 6), 0);
}

TEST_F(HardwareAddress, NeedsABufferOfSix) {
    for (const int length : {5, 1, 0, -1, -6}) {
        Mac mac{};
        mac.fill(0x5a);
        EXPECT_EQ(get_if_mac(kIf, mac.data(), length), -1) << length;
        EXPECT_THAT(mac, Each(0x5a)) << length;
    }
    EXPECT_EQ(count("socket"), 0U);
}

TEST_F(HardwareAddress, IsLeftAloneWhereTheInterfaceIsUnknown) {
    Mac mac{};
    mac.fill(0x5a);
    EXPECT_EQ(get_if_mac(kUnknown, mac.data(), sizeof(mac)), -1);
    EXPECT_THAT(mac, Each(0x5a));
}

TEST_F(HardwareAddress, IsSetAndTheInterfaceIsUpAgain) {
    const unsigned long flags = flags_of(kIf);
    EXPECT_EQ(set_if_mac(kIf, kMac.data()), 0);
    EXPECT_EQ(sys(kIf, "address"), "02:11:22:33:44:55");
    EXPECT_EQ(flags_of(kIf), flags);
}

TEST_F(HardwareAddress, OfAnInterfaceThatIsDownIsSetAndItStaysDown) {
    must_run("ip link set tq0 down");
    EXPECT_EQ(set_if_mac(kIf, kMac.data()), 0);
    EXPECT_EQ(sys(kIf, "address"), "02:11:22:33:44:55");
    EXPECT_FALSE(is_up(kIf));
}

TEST_F(HardwareAddress, IsSetWhileTheInterfaceIsDown) {
    const Recorder<ifreq> recorder;
    EXPECT_EQ(set_if_mac(kIf, kMac.data()), 0);
    ASSERT_THAT(recorder.operations(),
                ElementsAre(SIOCGIFFLAGS, SIOCSIFFLAGS, SIOCSIFHWADDR, SIOCSIFFLAGS));
    const auto& entries = recorder.entries();
    const int flags = entries[3].record.ifr_flags;
    EXPECT_EQ(flags & IFF_UP, IFF_UP);
    EXPECT_EQ(entries[1].record.ifr_flags, flags & ~IFF_UP);
    EXPECT_EQ(entries[2].record.ifr_hwaddr.sa_family, 1);
    EXPECT_EQ(memcmp(entries[2].record.ifr_hwaddr.sa_data, kMac.data(), kMac.size()), 0);
    for (const auto& entry : entries)
        EXPECT_STREQ(entry.record.ifr_name, kIf);
}

TEST_F(HardwareAddress, OfAnUnknownInterfaceIsASilentSuccess) {
    const Recorder<ifreq> recorder;
    EXPECT_EQ(set_if_mac(kUnknown, kMac.data()), 0);
    EXPECT_THAT(recorder.operations(), ElementsAre(SIOCGIFFLAGS));
}

// The kernel takes no group address for an interface's own.
TEST_F(HardwareAddress, ThatIsRefusedLeavesTheInterfaceDown) {
    const Mac group = {0x01, 0x00, 0x5e, 0x00, 0x00, 0x01};
    EXPECT_EQ(set_if_mac(kIf, group.data()), -1);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_FALSE(is_up(kIf));
}

TEST_F(HardwareAddress, StaysWhereTheInterfaceCannotBeTakenDown) {
    const Fail fail("ioctl", 2, EBUSY);
    EXPECT_EQ(set_if_mac(kIf, kMac.data()), -1);
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_TRUE(is_up(kIf));
}

TEST_F(HardwareAddress, IsSetWhereTheInterfaceCannotBeTakenUpAgain) {
    const Fail fail("ioctl", 4, EBUSY);
    EXPECT_EQ(set_if_mac(kIf, kMac.data()), -1);
    EXPECT_EQ(sys(kIf, "address"), "02:11:22:33:44:55");
    EXPECT_FALSE(is_up(kIf));
}

// set_interface

TEST_F(SetInterface, SetsAllThree) {
    EXPECT_EQ(set_interface(kIf, &kAddress, &kMask, kMac.data()), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":24)"));
    EXPECT_EQ(sys(kIf, "address"), "02:11:22:33:44:55");
    EXPECT_TRUE(is_up(kIf));
}

TEST_F(SetInterface, SetsOnlyWhatIsGiven) {
    const uint32_t mask = inet("255.255.255.240");
    EXPECT_EQ(set_interface(kIf, &kAddress, nullptr, nullptr), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":24)"));
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_EQ(set_interface(kIf, nullptr, &mask, nullptr), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":28)"));
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_EQ(set_interface(kIf, nullptr, nullptr, kMac.data()), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":28)"));
    EXPECT_EQ(sys(kIf, "address"), "02:11:22:33:44:55");
}

TEST_F(SetInterface, WithNothingToSetAsksTheKernelNothing) {
    EXPECT_EQ(set_interface(kIf, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(set_interface(kUnknown, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(count("socket"), 2U);
    EXPECT_EQ(count("ioctl"), 0U);
}

TEST_F(SetInterface, WithoutASocketIsAFailureWhateverIsSet) {
    const NoDescriptors none;
    EXPECT_EQ(set_interface(kIf, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(set_interface(kIf, nullptr, nullptr, kMac.data()), -1);
    EXPECT_EQ(set_interface(kIf, &kAddress, nullptr, nullptr), -1);
}

TEST_F(SetInterface, RequestsComeInTheirOrder) {
    const Recorder<ifreq> recorder;
    EXPECT_EQ(set_interface(kIf, &kAddress, &kMask, kMac.data()), 0);
    EXPECT_THAT(recorder.operations(), ElementsAre(SIOCSIFADDR, SIOCSIFNETMASK, SIOCGIFFLAGS,
                                                   SIOCSIFFLAGS, SIOCSIFHWADDR, SIOCSIFFLAGS));
    const auto& entries = recorder.entries();
    EXPECT_EQ(entries[1].record.ifr_netmask.sa_family, AF_INET);
    EXPECT_EQ(entries[4].record.ifr_hwaddr.sa_family, 1);
}

TEST_F(SetInterface, StopsAtTheFirstRefusalAndKeepsWhatWasSet) {
    const uint32_t mask = inet("255.0.255.0");
    EXPECT_EQ(set_interface(kIf, &kAddress, &mask, kMac.data()), -1);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":24)"));
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_EQ(count("ioctl"), 2U);
}

TEST_F(SetInterface, AHardwareAddressThatIsRefusedLeavesTheInterfaceDown) {
    const Mac group = {0x01, 0x00, 0x5e, 0x00, 0x00, 0x01};
    EXPECT_EQ(set_interface(kIf, &kAddress, &kMask, group.data()), -1);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":24)"));
    EXPECT_FALSE(is_up(kIf));
}

TEST_F(SetInterface, SkipsTheHardwareAddressWhereTheFlagsCannotBeRead) {
    EXPECT_EQ(set_interface(kUnknown, nullptr, nullptr, kMac.data()), 0);
    const Fail fail("ioctl", 3, EIO);
    EXPECT_EQ(set_interface(kIf, &kAddress, &kMask, kMac.data()), 0);
    EXPECT_THAT(addresses_of(kIf), HasSubstr(R"("local":"192.0.2.9","prefixlen":24)"));
    EXPECT_EQ(sys(kIf, "address"), kFirstMac);
    EXPECT_TRUE(is_up(kIf));
}

// Index and MTU

TEST_F(IndexAndMtu, AreTheKernels) {
    uint32_t index = 0;
    uint32_t mtu = 0;
    EXPECT_EQ(get_if_index(kIf, &index), 0);
    EXPECT_EQ(get_if_mtu(kIf, &mtu), 0);
    EXPECT_EQ(std::to_string(index), sys(kIf, "ifindex"));
    EXPECT_EQ(std::to_string(mtu), sys(kIf, "mtu"));
}

TEST_F(IndexAndMtu, TheMtuIsSet) {
    EXPECT_EQ(set_if_mtu(kIf, 1280), 0);
    EXPECT_EQ(sys(kIf, "mtu"), "1280");
    EXPECT_EQ(set_if_mtu(kIf, 65535), 0);
    EXPECT_EQ(sys(kIf, "mtu"), "65535");
}

TEST_F(IndexAndMtu, AnMtuThatTheInterfaceCannotCarryIsRefused) {
    for (const uint32_t mtu : {0U, 67U, 65536U, 0x80000000U, 0x80000578U, 0xffffffffU}) {
        EXPECT_EQ(set_if_mtu(kIf, mtu), -1) << mtu;
    }
    EXPECT_EQ(sys(kIf, "mtu"), "1500");
}

// Gateway

std::string route_row(const std::string& ifname, const std::string& gateway,
                      const std::string& flags) {
    return ifname + "\t00000000\t" + gateway + "\t" + flags + "\t0\t0\t0\t00000000\t0\t0\t0\n";
}

const std::string kRouteHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

struct Found {
    int result;
    uint32_t gateway;
};

bool operator==(const Found& a, const Found& b) {
    return a.result == b.result && a.gateway == b.gateway;
}

void PrintTo(const Found& found, std::ostream* out) {
    *out << found.result << ", gateway " << std::hex << found.gateway;
}

constexpr Found kNone = {-1, kUntouched};

Found gateway_in(const std::string& table, const std::string& ifname = "eth0") {
    const ScopedProc proc({{"net/route", table}});
    Found found = kNone;
    found.result = get_if_gateway(ifname.c_str(), &found.gateway);
    return found;
}

TEST_F(Gateway, OfARealRouteIsFound) {
    give_address();
    must_run(
        "ip route add default via 192.0.2.254 dev tq0 && "
        "ip route add 198.51.100.0/24 via 192.0.2.253 dev tq0");
    uint32_t gateway = 0;
    EXPECT_EQ(get_if_gateway(kIf, &gateway), 0);
    EXPECT_EQ(gateway, inet("192.0.2.254"));
    must_run("ip route del default");
    EXPECT_EQ(get_if_gateway(kIf, &gateway), 0);
    EXPECT_EQ(gateway, inet("192.0.2.253"));
}

TEST_F(Gateway, OfAnInterfaceWithoutARouteByOneIsAFailure) {
    uint32_t gateway = kUntouched;
    EXPECT_EQ(get_if_gateway(kIf, &gateway), -1);
    give_address();
    EXPECT_EQ(get_if_gateway(kIf, &gateway), -1);
    EXPECT_EQ(get_if_gateway(kUnknown, &gateway), -1);
    EXPECT_EQ(gateway, kUntouched);
}

TEST_F(Gateway, IsFoundBehindHundredsOfRealRoutes) {
    give_address();
    std::string batch;
    for (int i = 1; i < 255; i++)
        batch += "route add 10.0." + std::to_string(i) + ".0/24 dev tq0\n";
    batch += "route add 198.51.100.0/24 via 192.0.2.200 dev tq0\n";
    write_file("/tmp/routes", batch);
    must_run("ip -batch /tmp/routes");
    uint32_t gateway = 0;
    EXPECT_EQ(get_if_gateway(kIf, &gateway), 0);
    EXPECT_EQ(gateway, inet("192.0.2.200"));
}

TEST_F(Gateway, IsTheColumnAsItStands) {
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "FE0200C0", "0003")),
              (Found{0, 0xfe0200c0}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "fe0200c0", "0003")),
              (Found{0, 0xfe0200c0}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0003")), (Found{0, 1}));
}

TEST_F(Gateway, ARowThatIsUpWithoutAGatewayIsSkipped) {
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0001") +
                         route_row("eth0", "00000002", "0003")),
              (Found{0, 2}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0001")), kNone);
}

TEST_F(Gateway, ARowThatIsNotUpIsSkipped) {
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0002") +
                         route_row("eth0", "00000002", "0003")),
              (Found{0, 2}));
}

TEST_F(Gateway, OtherFlagsDoNotMatter) {
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0007")), (Found{0, 1}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "FFFF")), (Found{0, 1}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "FFFC")), kNone);
    // The flags are hexadecimal.
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0013")), (Found{0, 1}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row("eth0", "00000001", "0010")), kNone);
}

TEST_F(Gateway, OfTheFirstRowThatFitsIsTaken) {
    EXPECT_EQ(
        gateway_in(kRouteHeader + route_row("eth1", "00000001", "0003") +
                   route_row("eth0", "00000002", "0003") + route_row("eth0", "00000003", "0003")),
        (Found{0, 2}));
}

TEST_F(Gateway, NamesAreComparedWhole) {
    const std::string table = kRouteHeader + route_row("eth00", "00000001", "0003") +
                              route_row("eth", "00000002", "0003") +
                              route_row("eth0.1", "00000003", "0003");
    EXPECT_EQ(gateway_in(table, "eth0"), kNone);
    EXPECT_EQ(gateway_in(table, "eth0.1"), (Found{0, 3}));
    EXPECT_EQ(gateway_in(table, ""), kNone);
}

TEST_F(Gateway, NamesOf31BytesStillFit) {
    const std::string name(31, 'n');
    EXPECT_EQ(gateway_in(kRouteHeader + route_row(name, "00000001", "0003"), name), (Found{0, 1}));
    EXPECT_EQ(gateway_in(kRouteHeader + route_row(name, "00000001", "0003"), name + "n"), kNone);
    EXPECT_EQ(gateway_in(kRouteHeader + route_row(name + "n", "00000001", "0003"), name), kNone);
    EXPECT_EQ(gateway_in(kRouteHeader + route_row(std::string(5000, 'n'), "1", "0003"), name),
              kNone);
}

TEST_F(Gateway, TheHeaderIsNoRow) {
    EXPECT_EQ(gateway_in(route_row("eth0", "00000001", "0003")), kNone);
    EXPECT_EQ(
        gateway_in(route_row("eth0", "00000001", "0003") + route_row("eth0", "00000002", "0003")),
        (Found{0, 2}));
}

TEST_F(Gateway, AnEmptyTableHasNone) {
    EXPECT_EQ(gateway_in(""), kNone);
    EXPECT_EQ(gateway_in("\n"), kNone);
    EXPECT_EQ(gateway_in(kRouteHeader), kNone);
    EXPECT_EQ(gateway_in("no line feed"), kNone);
}

TEST_F(Gateway, ARowWithoutElevenFieldsEndsTheSearch) {
    const std::string good = route_row("eth0", "00000001", "0003");
    const std::string table = kRouteHeader + good;
    const std::vector<std::string> bad = {
        "eth1\n",
        "eth1\t00000000\t00000000\t0003\t0\t0\t0\t00000000\t0\t0\n",
        "eth1\t00000000\t00000000\tgood\t0\t0\t0\t00000000\t0\t0\t0\n",
        "eth1\t00000000\t-\t0003\t0\t0\t0\t00000000\t0\t0\t0\n",
        "eth1\t00000000\t00000000\t0003\t0\t0\t0\t00000000\t0\t0\tx\n",
    };
    for (const std::string& row : bad) {
        EXPECT_EQ(gateway_in(std::string(kRouteHeader).append(row).append(good)), kNone) << row;
        EXPECT_EQ(gateway_in(table + row), (Found{0, 1})) << row;
    }
}

TEST_F(Gateway, OfARowThatEndsEarlyIsNotTaken) {
    const std::string row = "eth0\t00000000\t00000001\t0003\t0\t0\t0\t00000000\t0\t0\t0";
    EXPECT_EQ(gateway_in(kRouteHeader + row), (Found{0, 1}));
    EXPECT_EQ(gateway_in(kRouteHeader + row.substr(0, row.size() - 1)), kNone);
}

TEST_F(Gateway, SearchEndsInGarbageOfAnySize) {
    EXPECT_EQ(gateway_in(kRouteHeader + std::string(100000, '\xff')), kNone);
    EXPECT_EQ(gateway_in(kRouteHeader + std::string(100000, '\0')), kNone);
    EXPECT_EQ(gateway_in(std::string(100000, 'x')), kNone);
    EXPECT_EQ(gateway_in(kRouteHeader + "eth0\t" + std::string(100000, '0') + "\n"), kNone);
    EXPECT_EQ(gateway_in(kRouteHeader + "%s%n%n\t%n\t%n\t%n\t0\t0\t0\t0\t0\t0\t0\n"), kNone);
}

TEST_F(Gateway, SearchEndsInAnyDamagedTable) {
    const ScopedProc proc({{"net/route", std::string()}});
    const std::string table = kRouteHeader + route_row("eth1", "00000001", "0003") +
                              route_row("eth0", "00000002", "0001") +
                              route_row("eth0", "00000003", "0003");
    std::mt19937 random = seeded(17);
    int found = 0;
    for (int round = 0; round < 500; round++) {
        std::string damaged = table;
        for (int i = 0; i < 3; i++)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        write_file("/proc/net/route", damaged);
        Found result = kNone;
        result.result = get_if_gateway("eth0", &result.gateway);
        EXPECT_TRUE(result == kNone || result.result == 0) << damaged;
        found += result.result + 1;
    }
    EXPECT_GT(found, 0);
    EXPECT_LT(found, 500);
}

TEST_F(Gateway, IsFoundBehindThousandsOfRows) {
    std::string table = kRouteHeader;
    for (int i = 0; i < 2000; i++)
        table += route_row("eth1", "00000001", "0003");
    EXPECT_EQ(gateway_in(table + route_row("eth0", "00000002", "0003")), (Found{0, 2}));
}

TEST_F(Gateway, WithoutATableIsAFailure) {
    uint32_t gateway = kUntouched;
    {
        const NoDescriptors none;
        EXPECT_EQ(get_if_gateway(kIf, &gateway), -1);
        EXPECT_EQ(errno, EMFILE);
    }
    const Fail fail("fopen", 1, ENOENT);
    EXPECT_EQ(get_if_gateway(kIf, &gateway), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(gateway, kUntouched);
}

TEST_F(Gateway, WithADirectoryForATableIsAFailure) {
    const ScopedProc proc({{"net/route/file", std::string()}});
    uint32_t gateway = kUntouched;
    EXPECT_EQ(get_if_gateway("eth0", &gateway), -1);
    EXPECT_EQ(gateway, kUntouched);
}

// ARP

TEST_F(Arp, AddsAnEntryThatIsForgottenInTime) {
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_THAT(neighbours_of(kIf),
                HasSubstr(R"("dst":"192.0.2.77","lladdr":"02:11:22:33:44:55")"));
    EXPECT_THAT(neighbours_of(kIf), Not(HasSubstr("PERMANENT")));
}

TEST_F(Arp, AddsAnEntryThatStays) {
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PERM), 0);
    EXPECT_THAT(
        neighbours_of(kIf),
        HasSubstr(R"("dst":"192.0.2.77","lladdr":"02:11:22:33:44:55","state":["PERMANENT"])"));
}

TEST_F(Arp, ChangesAnEntry) {
    const Mac other = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), other.data(), 0), 0);
    EXPECT_THAT(neighbours_of(kIf),
                AllOf(HasSubstr("02:aa:bb:cc:dd:ee"), Not(HasSubstr("02:11:22:33:44:55"))));
}

TEST_F(Arp, DeletesAnEntry) {
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PERM), 0);
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_THAT(neighbours_of(kIf), Not(HasSubstr("02:11:22:33:44:55")));
}

TEST_F(Arp, DeletesAnEntryWhateverItsHardwareAddress) {
    const Mac other = {0x02, 0xaa, 0xbb, 0xcc, 0xdd, 0xee};
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), other.data(), 0), 0);
    EXPECT_THAT(neighbours_of(kIf), Not(HasSubstr("02:11:22:33:44:55")));
}

TEST_F(Arp, DeletesAnEntryByItsAddressAlone) {
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PERM), 0);
    EXPECT_EQ(del_arp_by_ip(kIf, kNeighbour.data()), 0);
    EXPECT_THAT(neighbours_of(kIf), Not(HasSubstr("02:11:22:33:44:55")));
}

TEST_F(Arp, DeletesNothingElse) {
    const Ip other = {192, 0, 2, 78};
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_EQ(add_arp(kIf, other.data(), kMac.data(), 0), 0);
    EXPECT_EQ(add_arp("tq1", kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_EQ(del_arp_by_ip(kIf, kNeighbour.data()), 0);
    EXPECT_THAT(neighbours_of(kIf), HasSubstr(R"("dst":"192.0.2.78","lladdr")"));
    EXPECT_THAT(neighbours_of("tq1"), HasSubstr(R"("dst":"192.0.2.77","lladdr")"));
}

TEST_F(Arp, AnEntryThatIsNotThereCannotBeDeleted) {
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), kMac.data(), 0), -1);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(del_arp_by_ip(kIf, kNeighbour.data()), -1);
    EXPECT_EQ(errno, ENXIO);
}

TEST_F(Arp, FlagsThatTheKernelDoesNotTakeAreRefused) {
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), ATF_DONTPUB), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Arp, PublishesAnEntryAndTakesItBack) {
    const std::string show = "ip -j neigh show proxy dev tq0";
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PUBL), 0);
    EXPECT_THAT(run_command(show).out, HasSubstr("192.0.2.77"));
    EXPECT_THAT(neighbours_of(kIf), Not(HasSubstr("192.0.2.77")));
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), kMac.data(), 0), -1);
    EXPECT_THAT(run_command(show).out, HasSubstr("192.0.2.77"));
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PUBL), 0);
    EXPECT_THAT(run_command(show).out, Not(HasSubstr("192.0.2.77")));
}

std::vector<Recorder<arpreq>::Entry> arp_requests(const std::function<void()>& body) {
    const Recorder<arpreq> recorder;
    body();
    return recorder.entries();
}

arpreq expected_request(const char* ifname, const Mac& mac, int flags) {
    arpreq request{};
    request.arp_pa.sa_family = AF_INET;
    // The address follows the port.
    memcpy(&request.arp_pa.sa_data[2], kNeighbour.data(), kNeighbour.size());
    memcpy(request.arp_ha.sa_data, mac.data(), mac.size());
    request.arp_flags = flags;
    memcpy(request.arp_dev, ifname, strlen(ifname));
    return request;
}

bool is_same(const arpreq& a, const arpreq& b) {
    return memcmp(&a, &b, sizeof(a)) == 0;
}

TEST_F(Arp, RequestsHoldTheAddressesTheFlagsAndTheDevice) {
    const auto requests = arp_requests([] {
        add_arp(kIf, kNeighbour.data(), kMac.data(), 0);
        add_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PERM);
        delete_arp(kIf, kNeighbour.data(), kMac.data(), 0);
        delete_arp(kIf, kNeighbour.data(), kMac.data(), ATF_PERM);
        del_arp_by_ip(kIf, kNeighbour.data());
    });
    ASSERT_EQ(requests.size(), 5U);
    EXPECT_EQ(requests[0].operation, static_cast<unsigned long>(SIOCSARP));
    EXPECT_EQ(requests[1].operation, static_cast<unsigned long>(SIOCSARP));
    EXPECT_EQ(requests[2].operation, static_cast<unsigned long>(SIOCDARP));
    EXPECT_EQ(requests[3].operation, static_cast<unsigned long>(SIOCDARP));
    EXPECT_EQ(requests[4].operation, static_cast<unsigned long>(SIOCDARP));
    EXPECT_TRUE(is_same(requests[0].record, expected_request(kIf, kMac, ATF_COM)));
    EXPECT_TRUE(is_same(requests[1].record, expected_request(kIf, kMac, ATF_PERM)));
    EXPECT_TRUE(is_same(requests[2].record, expected_request(kIf, kMac, ATF_COM)));
    EXPECT_TRUE(is_same(requests[3].record, expected_request(kIf, kMac, ATF_PERM)));
    EXPECT_TRUE(is_same(requests[4].record, expected_request(kIf, {}, 0)));
}

TEST_F(Arp, ALongNameIsCutAndEndsInTheRequest) {
    const auto requests = arp_requests([] {
        add_arp("abcdefghijklmno", kNeighbour.data(), kMac.data(), 0);
        add_arp("abcdefghijklmnop", kNeighbour.data(), kMac.data(), 0);
        del_arp_by_ip("abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz", kNeighbour.data());
    });
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_TRUE(is_same(requests[0].record, expected_request("abcdefghijklmno", kMac, ATF_COM)));
    EXPECT_TRUE(is_same(requests[1].record, expected_request("abcdefghijklmno", kMac, ATF_COM)));
    EXPECT_TRUE(is_same(requests[2].record, expected_request("abcdefghijklmno", {}, 0)));
}

TEST_F(Arp, AnyResultThatIsNotNegativeIsASuccess) {
    int answer = 7;
    const AnswerIoctl kernel([&](unsigned long, void*) -> std::optional<int> { return answer; });
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_EQ(delete_arp(kIf, kNeighbour.data(), kMac.data(), 0), 0);
    EXPECT_EQ(del_arp_by_ip(kIf, kNeighbour.data()), 0);
    answer = -5;
    EXPECT_EQ(add_arp(kIf, kNeighbour.data(), kMac.data(), 0), -1);
}

// Host names: from /etc/hosts, and from a name server on the device's loopback.

class Resolver : public DeviceTest {
  protected:
    static void SetUpTestSuite() {
        write_file("/etc/nsswitch.conf", "hosts: files dns\n");
        write_file("/run/names",
                   "192.0.2.10 one.test\n"
                   "198.51.100.9 three.test\n"
                   "192.0.2.3 three.test\n"
                   "203.0.113.7 three.test\n"
                   "2001:db8::6 six.test\n"
                   "192.0.2.46 both.test\n"
                   "2001:db8::46 both.test\n");
        must_run(
            "dnsmasq --conf-file=/dev/null --user=root --pid-file=/run/dnsmasq.pid --no-resolv "
            "--no-hosts --addn-hosts=/run/names --no-round-robin --listen-address=127.0.0.1 "
            "--bind-interfaces --local=/test/ --cname=alias.test,one.test");
    }

    static void TearDownTestSuite() { run_command("kill $(cat /run/dnsmasq.pid)"); }

    void SetUp() override {
        unlink("/etc/resolv.conf");
        write_file("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
        write_file("/etc/hosts",
                   "127.0.0.1 localhost\n"
                   "192.0.2.20 filed\n"
                   "192.0.2.30 many\n"
                   "192.0.2.31 many\n"
                   "2001:db8::5 sixth\n");
        // What the resolver keeps open for itself is there from here on.
        gethostbyname("localhost");
        descriptors_ = open_descriptors();
    }

    void TearDown() override {
        made_up_host = nullptr;
        EXPECT_EQ(open_descriptors(), descriptors_);
        EXPECT_THAT(log_.take(), IsEmpty());
    }

    LogCapture log_;

  private:
    std::vector<int> descriptors_;
};

uint32_t address_of(const char* name) {
    uint32_t address = kUntouched;
    const int result = get_ip_by_hostname(name, &address);
    EXPECT_TRUE(result == 0 || (result == -1 && address == kUntouched)) << result;
    return address;
}

void free_all(const ip_str_list& list) {
    for (uint32_t i = 0; i < list.count; i++)
        free(list.array[i]);
    free(static_cast<void*>(list.array));
}

// Takes the list over as its caller has to.
std::vector<std::string> taken(const ip_str_list& list) {
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < list.count; i++) {
        texts.emplace_back(list.array[i]);
    }
    free_all(list);
    return texts;
}

std::vector<std::string> addresses_by_name(const char* name) {
    ip_str_list list = {reinterpret_cast<char**>(&list), 99};
    const int result = get_ip_list_by_hostname(name, &list);
    EXPECT_EQ(result, list.count > 0 ? 0 : -1);
    EXPECT_EQ(list.array == nullptr, list.count == 0);
    return taken(list);
}

TEST_F(Resolver, FindsAnAddressInTheHostsFile) {
    EXPECT_EQ(address_of("filed"), inet("192.0.2.20"));
    EXPECT_THAT(addresses_by_name("filed"), ElementsAre("192.0.2.20"));
}

TEST_F(Resolver, FindsTheAddressesInTheHostsFile) {
    EXPECT_EQ(address_of("many"), inet("192.0.2.30"));
    EXPECT_THAT(addresses_by_name("many"), ElementsAre("192.0.2.30", "192.0.2.31"));
}

TEST_F(Resolver, FindsOneAddressOfTheNameServer) {
    EXPECT_EQ(address_of("one.test"), inet("192.0.2.10"));
    EXPECT_THAT(addresses_by_name("one.test"), ElementsAre("192.0.2.10"));
}

TEST_F(Resolver, FindsThreeAddressesInTheResolversOrder) {
    EXPECT_EQ(address_of("three.test"), inet("198.51.100.9"));
    EXPECT_THAT(addresses_by_name("three.test"),
                ElementsAre("198.51.100.9", "192.0.2.3", "203.0.113.7"));
}

TEST_F(Resolver, FollowsAnAlias) {
    EXPECT_EQ(address_of("alias.test"), inet("192.0.2.10"));
    EXPECT_THAT(addresses_by_name("alias.test"), ElementsAre("192.0.2.10"));
}

TEST_F(Resolver, GivesTheIpv4AddressOfANameWithBoth) {
    EXPECT_EQ(address_of("both.test"), inet("192.0.2.46"));
    EXPECT_THAT(addresses_by_name("both.test"), ElementsAre("192.0.2.46"));
}

TEST_F(Resolver, FailsForANameThatHasAnIpv6AddressOnly) {
    for (const char* name : {"six.test", "sixth", "2001:db8::1"}) {
        EXPECT_EQ(address_of(name), kUntouched) << name;
        EXPECT_THAT(addresses_by_name(name), IsEmpty()) << name;
    }
}

TEST_F(Resolver, FailsForAnUnknownName) {
    EXPECT_EQ(address_of("unknown.test"), kUntouched);
    EXPECT_THAT(addresses_by_name("unknown.test"), IsEmpty());
    EXPECT_EQ(address_of(""), kUntouched);
    EXPECT_EQ(address_of(std::string(5000, 'n').c_str()), kUntouched);
}

TEST_F(Resolver, TakesAnAddressForAName) {
    EXPECT_EQ(address_of("203.0.113.9"), inet("203.0.113.9"));
    EXPECT_THAT(addresses_by_name("255.255.255.255"), ElementsAre("255.255.255.255"));
}

TEST_F(Resolver, FailsWhereNoServerListens) {
    write_file("/etc/resolv.conf", "nameserver 127.0.0.9\noptions timeout:1 attempts:1\n");
    EXPECT_EQ(address_of("one.test"), kUntouched);
    EXPECT_THAT(addresses_by_name("one.test"), IsEmpty());
    EXPECT_EQ(address_of("filed"), inet("192.0.2.20"));
}

// Takes the questions at 127.0.0.2 and keeps them.
TEST_F(Resolver, FailsWhereTheServerDoesNotAnswer) {
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = inet("127.0.0.2");
    ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    write_file("/etc/resolv.conf", "nameserver 127.0.0.2\noptions timeout:1 attempts:1\n");

    EXPECT_EQ(address_of("one.test"), kUntouched);
    std::array<char, 512> question{};
    EXPECT_GT(recv(server, question.data(), question.size(), MSG_DONTWAIT), 0);
    close(server);
}

TEST_F(Resolver, RejectsNullArgumentsInSilence) {
    ip_str_list list = {reinterpret_cast<char**>(&list), 99};
    uint32_t address = kUntouched;
    EXPECT_EQ(get_ip_by_hostname(nullptr, &address), -1);
    EXPECT_EQ(get_ip_by_hostname("one.test", nullptr), -1);
    EXPECT_EQ(get_ip_list_by_hostname(nullptr, &list), -1);
    EXPECT_EQ(get_ip_list_by_hostname("one.test", nullptr), -1);
    EXPECT_EQ(address, kUntouched);
    EXPECT_EQ(list.count, 99U);
}

TEST_F(Resolver, TheListIsAPointerAndACount) {
    EXPECT_EQ(offsetof(ip_str_list, array), 0U);
    EXPECT_EQ(offsetof(ip_str_list, count), sizeof(char**));
    EXPECT_EQ(sizeof(ip_str_list::count), 4U);
}

// What a resolver may also answer.

struct MadeUpHost {
    std::vector<std::string> bytes;
    std::vector<char*> addresses;
    hostent host{};

    MadeUpHost(std::vector<std::string> list, int type, int length) : bytes(std::move(list)) {
        for (std::string& address : bytes)
            addresses.push_back(address.data());
        addresses.push_back(nullptr);
        host.h_addrtype = type;
        host.h_length = length;
        host.h_addr_list = addresses.data();
        made_up_host = &host;
    }
    MadeUpHost(const MadeUpHost&) = delete;
    MadeUpHost& operator=(const MadeUpHost&) = delete;
    ~MadeUpHost() { made_up_host = nullptr; }
};

TEST_F(Resolver, RefusesAnotherFamily) {
    const MadeUpHost host({std::string(16, '\1')}, AF_INET6, 16);
    EXPECT_EQ(address_of("any"), kUntouched);
    EXPECT_THAT(addresses_by_name("any"), IsEmpty());
}

TEST_F(Resolver, RefusesAnotherFamilyOfFourBytes) {
    const MadeUpHost host({"\1\2\3\4"}, AF_UNIX, 4);
    EXPECT_EQ(address_of("any"), kUntouched);
    EXPECT_THAT(addresses_by_name("any"), IsEmpty());
}

TEST_F(Resolver, LooksAtTheLengthForASingleAddressOnly) {
    const MadeUpHost host({std::string("\1\2\3\4\5\6\7\10", 8)}, AF_INET, 8);
    EXPECT_EQ(address_of("any"), kUntouched);
    EXPECT_THAT(addresses_by_name("any"), ElementsAre("1.2.3.4"));
}

TEST_F(Resolver, RefusesAHostWithoutAddresses) {
    const MadeUpHost host({}, AF_INET, 4);
    EXPECT_EQ(address_of("any"), kUntouched);
    EXPECT_THAT(addresses_by_name("any"), IsEmpty());
}

TEST_F(Resolver, ListsAHostOfManyAddresses) {
    std::vector<std::string> bytes;
    std::vector<std::string> texts;
    for (int i = 0; i < 500; i++) {
        bytes.push_back({'\12', '\0', static_cast<char>(i / 256), static_cast<char>(i % 256)});
        texts.push_back("10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256));
    }
    const MadeUpHost host(bytes, AF_INET, 4);
    EXPECT_THAT(addresses_by_name("any"), ElementsAreArray(texts));
}

TEST_F(Resolver, AllocatesTheArrayAndATextForEachAddress) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const MadeUpHost host({"\1\1\1\1", "\2\2\2\2", "\3\3\3\3"}, AF_INET, 4);
    tq_test::faults::reset();
    ip_str_list list{};
    EXPECT_EQ(get_ip_list_by_hostname("any", &list), 0);
    EXPECT_EQ(count("calloc"), 1U);
    EXPECT_EQ(count("malloc"), 3U);
    EXPECT_THAT(taken(list), ElementsAre("1.1.1.1", "2.2.2.2", "3.3.3.3"));
}

TEST_F(Resolver, LeavesAnEmptyListWhereMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const MadeUpHost host({"\1\1\1\1", "\2\2\2\2", "\3\3\3\3"}, AF_INET, 4);
    const auto fails_empty = [] {
        ip_str_list list = {reinterpret_cast<char**>(&list), 99};
        if (get_ip_list_by_hostname("any", &list) == 0) return free_all(list);
        EXPECT_EQ(list.array, nullptr);
        EXPECT_EQ(list.count, 0U);
        EXPECT_EQ(errno, ENOMEM);
    };
    EXPECT_EQ(tq_test::faults::each_failure("calloc", ENOMEM, fails_empty), 1U);
    EXPECT_EQ(tq_test::faults::each_failure("malloc", ENOMEM, fails_empty), 3U);
}

TEST_F(Resolver, FreesWhatItHasWhereMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const MadeUpHost host({"\1\1\1\1", "\2\2\2\2", "\3\3\3\3"}, AF_INET, 4);
    const auto in_use = [] { return mallinfo2().uordblks; };
    const size_t before = in_use();
    for (int round = 0; round < 1000; round++) {
        const Fail fail("malloc", 3, ENOMEM);
        ip_str_list list{};
        EXPECT_EQ(get_ip_list_by_hostname("any", &list), -1);
    }
    // A text that is lost each time takes three times as much.
    EXPECT_LT(in_use(), before + 8000);
}

}  // namespace
