// tqctl_contract_test.cpp - what holds for every command: data on standard output, diagnostics on
// standard error, the documented exit codes, JSON that docs/tqctl.schema.json describes.
#include <gmock/gmock.h>
#include <linux/netlink.h>

#include <algorithm>
#include <any>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "eloop/ipc_server.h"
#include "support/bus.h"
#include "support/named_process.h"
#include "tools/changing_features.h"
#include "tools/tqctl.h"
#include "tools/whole_device.h"

namespace {

using namespace tq_test;  // NOLINT(google-build-using-namespace)
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// What a run needs around it, until it is over.
using World = std::shared_ptr<void>;
using MakeWorld = std::function<World()>;

// A command line and how it ends.
struct Case {
    std::string command;
    std::string arguments;
    Code code;
    bool prints;  // data, on standard output
    Code json_code = code;
    bool is_answer = false;  // the code is, and comes without a diagnostic
    int netlink = -1;        // the protocol that the kernel must have
    std::string setup{};
    MakeWorld world = [] { return World(); };

    Case in(const MakeWorld& make_world) const { return changed(&Case::world, make_world); }
    Case after(const std::string& script) const { return changed(&Case::setup, script); }
    Case still_printing() const { return changed(&Case::prints, true); }
    Case as_answer() const { return changed(&Case::is_answer, true); }
    Case as_json(Code other) const { return changed(&Case::json_code, other); }
    Case needing(int protocol) const { return changed(&Case::netlink, protocol); }

  private:
    template <typename Type, typename Value>
    Case changed(Type Case::*member, const Value& value) const {
        Case copy = *this;
        copy.*member = value;
        return copy;
    }
};

void PrintTo(const Case& contract, std::ostream* stream) {
    *stream << contract.command << " " << contract.arguments << ", code " << contract.code;
}

Case prints(const std::string& command, const std::string& arguments) {
    return {command, arguments, kDone, true};
}

Case changes(const std::string& command, const std::string& arguments) {
    return {command, arguments, kDone, false};
}

Case ends(const std::string& command, const std::string& arguments, Code code) {
    return {command, arguments, code, false};
}

// Worlds

template <typename Type, typename... Arguments>
MakeWorld with(Arguments... arguments) {
    return [=] { return std::make_shared<Type>(arguments...); };
}

MakeWorld with_service(const std::string& object) {
    return [=] { return std::make_shared<BusService>(std::vector<std::string>{object}); };
}

MakeWorld with_loop(const std::string& command) {
    return [=] {
        const std::string line = "echo; while :; do " + command + "; sleep 0.01; done";
        auto process = std::make_shared<Process>(std::vector<std::string>{"sh", "-c", line});
        process->wait_for_output();
        return process;
    };
}

// A daemon that answers once.
class Daemon {
  public:
    Daemon() : thread_([this] { server_.answer(server_.receive(), "running"); }) {}
    ~Daemon() { thread_.join(); }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

  private:
    IpcServer server_{"fmd"};
    std::thread thread_;
};

const MakeWorld kFlashWorld = with<WholeFlash>();
const MakeWorld kDeviceWorld = with<WholeDevice>();
const std::string kIni = "printf '[a]\\nb = 1\\n' >/tmp/x.ini";
const std::string kNoBoard = "rm /etc/board.conf";
const std::string kAddress = "ip addr add 192.0.2.1/24 dev eth0";
const std::string kReboots = "tqctl reboot-log add 2 why; tqctl reboot-log check";
const std::string kPanic =
    "tqctl reboot-log list; printf '\\007' | dd of=/tmp/reboot_cause bs=1 seek=24 conv=notrunc; "
    "printf Oops | dd of=/tmp/reboot_cause bs=1 seek=23076 conv=notrunc";
const std::string kHost =
    "rm /etc/resolv.conf; echo hosts: files >/etc/nsswitch.conf; echo 192.0.2.31 many >/etc/hosts";

// Each command at least once where it is done and once where it is not.
const std::vector<Case> kCases = {
    prints("uci get", "wireless.radio0.channel"),
    ends("uci get", "wireless.radio0.x", kRefused),
    ends("uci get", "wireless.radio0.channel wireless.radio0.x", kRefused).still_printing(),
    changes("uci set", "wireless.radio0.channel=9"),
    ends("uci set", "nothing.a.b=c", kRefused),
    prints("uci add", "wireless wifi-iface"),
    ends("uci add", "nothing thing", kRefused),
    changes("uci del", "wireless.radio0.channel"),
    ends("uci del", "nothing.a", kRefused),
    changes("uci add-list", "wireless.radio0.basic_rate=6000"),
    ends("uci add-list", "nothing.a.b=c", kRefused),
    changes("uci del-list", "wireless.radio0.basic_rate=1000"),
    ends("uci del-list", "nothing.a.b=c", kRefused),
    prints("config list", ""),
    ends("config list", "", kDamaged).still_printing().after("echo \"config 'a\" >/etc/config/nat"),
    prints("config show", "wireless radio0"),
    ends("config show", "nothing", kRefused),
    changes("config save", "wireless"),
    ends("config save", "nothing", kRefused),
    prints("wifi show", ""),
    ends("wifi show", "nothing", kRefused),
    prints("wifi get", "radio0 mode"),
    ends("wifi get", "radio0 auth", kRefused),
    changes("wifi set", "radio0 rts 2000"),
    ends("wifi set", "nothing mode 1", kRefused),
    prints("ini get", "/tmp/x.ini a:b").after(kIni),
    ends("ini get", "/tmp/x.ini a:c", kRefused).after(kIni),
    changes("ini set", "/tmp/x.ini a:b 2"),
    ends("ini set", "/tmp/no/x.ini a:b 2", kRefused),
    changes("ini unset", "/tmp/x.ini a:b").after(kIni),
    ends("ini unset", "/tmp/x.ini a:c", kRefused).after(kIni),
    prints("ini dump", "/tmp/x.ini").after(kIni),
    ends("ini dump", "/tmp/x.ini", kRefused),
    prints("ini check", "/tmp/x.ini").after(kIni),
    ends("ini check", "/tmp/x.ini", kDamaged).after("echo '[a' >/tmp/x.ini"),

    prints("board show", ""),
    ends("board show", "", kRefused).after(kNoBoard),
    prints("board radios", ""),
    ends("board radios", "", kRefused).after(kNoBoard),
    prints("board ports", ""),
    ends("board ports", "", kRefused).after(kNoBoard),
    prints("mac show", ""),
    ends("mac show", "", kRefused).after(kNoBoard),
    prints("mac ssid", "1"),
    ends("mac ssid", "x", kUsage),
    prints("selftest", "").in(kDeviceWorld),
    ends("selftest", "", kDamaged).still_printing(),
    ends("selftest", "", kRefused).still_printing().after(kNoBoard),

    prints("if list", ""),
    ends("if list", "x", kUsage),
    prints("if show", "eth0").after(kAddress),
    ends("if show", "nothing", kRefused),
    changes("if up", "eth1"),
    ends("if up", "nothing", kRefused),
    changes("if down", "eth1"),
    ends("if down", "nothing", kRefused),
    changes("if set", "eth1 mtu=1400"),
    ends("if set", "nothing mtu=1400", kRefused),
    changes("arp add", "eth0 192.0.2.7 02:00:5e:00:53:07").after(kAddress),
    ends("arp add", "nothing 192.0.2.7 02:00:5e:00:53:07", kRefused),
    changes("arp del", "eth0 192.0.2.7")
        .after(kAddress + "; ip neigh replace 192.0.2.7 lladdr 02:00:5e:00:53:07 dev eth0"),
    ends("arp del", "eth0 192.0.2.8", kRefused),
    prints("route gateway", "eth0")
        .after(kAddress + "; ip route add 198.51.100.0/24 via 192.0.2.2 dev eth0"),
    ends("route gateway", "eth1", kRefused),
    prints("resolve", "many").after(kHost),
    ends("resolve", "few", kRefused).after(kHost),
    prints("ip parse", "192.0.2.1/24"),
    prints("ip parse", "2001:db8::1/64"),
    ends("ip parse", "x", kRefused),
    prints("ip mask", "24"),
    prints("ip mask", "255.255.0.0"),
    ends("ip mask", "33", kRefused),
    prints("ip broadcast", "192.0.2.1/24"),
    ends("ip broadcast", "2001:db8::1", kRefused),

    prints("bus call", "fm.ac connect").in(with_service("fm.ac=int:port:5246,str:addr:a")),
    ends("bus call", "nothing connect", kRefused),
    prints("bus list", "").in(with_service("fm.ac")),
    changes("bus list", ""),
    ends("bus list", "nothing", kRefused),
    prints("bus ping", ""),
    ends("bus ping", "nothing", kRefused),
    changes("fm notify", "ac-connect 192.0.2.1 5246").in(with_service("fm.ac")),
    ends("fm notify", "ac-connect 192.0.2.1 5246", kRefused),
    changes("fm set", "threshold 7 80").in(with_service("fm.threshold")),
    ends("fm set", "threshold 7 80", kRefused),
    prints("fm threshold", "1"),
    ends("fm threshold", "99", kRefused),
    prints("fm suppress", "1"),
    ends("fm suppress", "99", kRefused),
    changes("bw set", "ssid ath0 512 1024").in(with_service("bwctrl")),
    ends("bw set", "ssid ath0 512 1024", kRefused),
    changes("bw del", "ssid ath0").in(with_service("bwctrl")),
    ends("bw del", "ssid ath0", kRefused),
    prints("bw show-request", "set station ath0 00:1a:2b:3c:4d:5e 512 1024"),
    prints("bw show-request", "set max-stations ath0 9"),
    ends("bw show-request", "nothing", kUsage),
    changes("bw reload", "").in(with_service("bwctrl")),
    ends("bw reload", "", kRefused),
    changes("bw save", "").in(with_service("bwctrl")),
    ends("bw save", "", kRefused),
    prints("flow show", "2").in(with_service("statistics=int:ifInFlow:4294967295,int:ifOutFlow:0")),
    ends("flow show", "2", kRefused),
    prints("ipc send", "fmd status").in(with<Daemon>()),
    ends("ipc send", "fmd status", kRefused),
    prints("netlink listen", "0 1 2")
        .in(with_loop("ip link set eth1 mtu 1400; ip link set eth1 mtu 1500"))
        .needing(NETLINK_ROUTE),
    ends("netlink listen", "31 1", kRefused),
#ifndef __mips__  // whose emulator translates messages of this protocol, and knows none of type 0
    changes("netlink send", "0 payload"),
#endif
    ends("netlink send", "31 payload", kRefused),
    prints("genl family", "nlctrl").needing(NETLINK_GENERIC),
    ends("genl family", "nothing", kRefused),
    prints("genl listen", "ethtool monitor 1")
        .in(with<ChangingFeatures>())
        .needing(NETLINK_GENERIC),
    ends("genl listen", "nothing monitor", kRefused),
    changes("ps running", ""),
    prints("ps running", "hostapd").in(with<NamedProcess>("hostapd")),
    ends("ps running", "hostapd", kRefused).still_printing().as_answer(),
    prints("log level", "hostapd"),
    changes("log level", "hostapd 7"),
    ends("log level", "nothing", kUsage),
    prints("log server", "hostapd"),
    ends("log server", "all x", kUsage),
    prints("log size", ""),
    ends("log size", "9", kUsage),
    prints("log trace", ""),
    ends("log trace", "off", kRefused),
    prints("log show", ""),
    ends("log show", "x", kUsage),

    prints("status offline", "").after("tqctl status offline 3"),
    ends("status offline", "", kRefused),
    prints("status traffic", ""),
    ends("status traffic", "x", kUsage),
    prints("status capwap", "").after("tqctl status capwap 5"),
    ends("status capwap", "x", kUsage),
    prints("status coredump", "").after("tqctl status coredump 192.0.2.7"),
    ends("status coredump", "", kRefused),
    prints("reboot-log list", "").in(kFlashWorld).after(kReboots),
    changes("reboot-log list", "").in(kFlashWorld),
    ends("reboot-log list", "", kRefused).after(kNoBoard),
    prints("reboot-log stats", "").in(kFlashWorld).after(kReboots),
    ends("reboot-log stats", "", kRefused).after(kNoBoard),
    changes("reboot-log add", "2 why").in(kFlashWorld),
    ends("reboot-log add", "2 why", kRefused).after(kNoBoard),
    prints("reboot-log panic", "7").in(kFlashWorld).after(kPanic),
    ends("reboot-log panic", "7", kRefused).in(kFlashWorld),
    prints("reboot-log check", "").in(kFlashWorld),
    ends("reboot-log check", "", kRefused).after(kNoBoard),
    prints("reboot-log fix-times", "").in(kFlashWorld),
    ends("reboot-log fix-times", "", kRefused).after(kNoBoard),

    prints("upgrade lock", ""),
    ends("upgrade lock", "", kBusy).after("tqctl upgrade lock"),
    changes("upgrade unlock", "").after("tqctl upgrade lock"),
    ends("upgrade unlock", "", kRefused),
    prints("upgrade status", ""),
    prints("upgrade status", "").after("tqctl upgrade lock"),
    ends("upgrade status", "x", kUsage),
    // The document is the command's own.
    prints("upgrade run", "-- echo {}"),
    ends("upgrade run", "true", kBusy).after("tqctl upgrade lock"),
    prints("flash list", "").in(kDeviceWorld),
    ends("flash list", "", kRefused),
    prints("flash version", "").in(kFlashWorld),
    ends("flash version", "", kRefused),
    prints("image status", "").in(kFlashWorld),
    ends("image status", "", kDamaged),
    prints("image switch", "--dry-run").in(kFlashWorld),
    prints("image switch", "--yes").in(kFlashWorld),
    ends("image switch", "</dev/null", kRefused).in(kFlashWorld),
    prints("image check", "").in(kFlashWorld),
    ends("image check", "", kDamaged),
    prints("redboot list", "").in(kFlashWorld),
    ends("redboot list", "", kDamaged),
    prints("redboot get", "alias/kernel").in(kFlashWorld),
    ends("redboot get", "nothing", kRefused).in(kFlashWorld),
    changes("redboot set", "boot_script_timeout=5").in(kFlashWorld),
    ends("redboot set", "nothing=5", kRefused).in(kFlashWorld),
    changes("redboot add", "int fresh 5").in(kFlashWorld),
    ends("redboot add", "int alias/kernel 5", kRefused).in(kFlashWorld),
    prints("redboot verify", "").in(kFlashWorld),
    ends("redboot verify", "", kDamaged),
    prints("redboot dump", "").in(kFlashWorld),
    ends("redboot dump", "", kDamaged).still_printing(),
    prints("sn get", "").in(kFlashWorld),
    ends("sn get", "", kDamaged),
    changes("sn set", "A1B2C3").in(kFlashWorld),
    ends("sn set", "A1B2C3", kDamaged),

    prints("stat cpu", ""),
    ends("stat cpu", "x", kUsage),
    prints("stat mem", ""),
    ends("stat mem", "x", kUsage),
    prints("stat flash", "").in(kDeviceWorld),
    ends("stat flash", "", kRefused),
    prints("stat uptime", ""),
    ends("stat uptime", "x", kUsage),
    prints("stat ports", ""),
    ends("stat ports", "x", kUsage),
    prints("stat all", "").in(kDeviceWorld),
    ends("stat all", "", kRefused).still_printing(),
    ends("stat watch", "", kRefused).as_json(kUsage),
    prints("eloop lag", "3 1"),
    ends("eloop lag", "0", kUsage),

    prints("help", ""),
    prints("help", "uci get"),
    ends("help", "nothing", kUsage),
    prints("man", "").as_json(kUsage),
    ends("man", "x", kUsage),
    prints("completion bash", "").as_json(kUsage),
    ends("completion bash", "x", kUsage),
};

bool kernel_has(int protocol) {
    const int sock = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol);
    if (sock >= 0) close(sock);
    return sock >= 0;
}

bool can_run(const Case& contract) {
    return contract.netlink < 0 || kernel_has(contract.netlink);
}

// One run of the command, on a device of its own.
CommandResult run(const Case& contract, const std::string& options,
                  const std::string& redirection = "") {
    reset_device();
    const World world = contract.world();
    if (!contract.setup.empty()) run_command(contract.setup);
    CommandResult result = run_command(kWithoutLeakDetector + "tqctl " + options +
                                       contract.command + " " + contract.arguments + redirection);
    run_command(
        "tqctl upgrade unlock; rm -f /usr/config/coredump_server /etc/syslogd.conf; "
        "ip addr flush dev eth0; ip neigh flush dev eth0; ip link set eth1 up mtu 1500");
    return result;
}

void expect_diagnostics(const Case& contract, Code code, const std::string& err) {
    if (code == kDone || contract.is_answer) {
        EXPECT_THAT(err, IsEmpty());
    } else {
        EXPECT_THAT(err, HasSubstr("tqctl: " + contract.command + ": "));
    }
}

const std::string kSchema = TQ_SOURCE_DIR "/docs/tqctl.schema.json";

// Lines of one command with its document each.
CommandResult validate(const std::string& documents) {
    write_file("/tmp/documents", documents);
    return run_command("/usr/bin/python3 " TQ_SOURCE_DIR "/tests/tools/validate_json.py " +
                       kSchema + " /tmp/documents");
}

class ContractTest : public testing::TestWithParam<Case> {
  protected:
    // All at once: the validator takes long to start.
    static void TearDownTestSuite() {
        const CommandResult result = validate(documents);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
    }

    static inline std::string documents;

    void SetUp() override {
        if (!can_run(GetParam())) GTEST_SKIP() << "the kernel does not have the protocol";
    }
};

TEST_P(ContractTest, DataAndDiagnosticsHaveTheirOwnPlaces) {
    const Case& contract = GetParam();
    const CommandResult result = run(contract, "");
    EXPECT_EQ(result.status, contract.code) << result.err;
    EXPECT_EQ(!result.out.empty(), contract.prints) << result.out;
    EXPECT_THAT(result.out, Not(HasSubstr("tqctl: " + contract.command + ": ")));
    expect_diagnostics(contract, contract.code, result.err);
}

TEST_P(ContractTest, JsonComesWithTheSameCode) {
    const Case& contract = GetParam();
    const CommandResult result = run(contract, "-j ");
    EXPECT_EQ(result.status, contract.json_code) << result.err;
    std::istringstream lines(result.out);
    int count = 0;
    for (std::string line; std::getline(lines, line); count++) {
        EXPECT_TRUE(parse(line + "\n")) << line;
        documents += "{\"" + contract.command + "\": " + line + "}\n";
    }
    EXPECT_GE(count, 1);
    const bool is_one = count == 1 || contract.netlink >= 0;
    EXPECT_TRUE(is_one) << result.out;
    expect_diagnostics(contract, contract.json_code, result.err);
}

TEST_P(ContractTest, QuietKeepsDataAndCode) {
    const Case& contract = GetParam();
    const CommandResult result = run(contract, "-q ");
    EXPECT_EQ(result.status, contract.code);
    EXPECT_EQ(!result.out.empty(), contract.prints) << result.out;
    EXPECT_THAT(result.err, IsEmpty());
}

// What another command prints is that one's to notice.
TEST_P(ContractTest, LostDataIsAnError) {
    const Case& contract = GetParam();
    if (!contract.prints || contract.command == "upgrade run") return;
    const CommandResult result = run(contract, "", " >/dev/full");
    EXPECT_EQ(result.status, kInputOutput);
    EXPECT_THAT(result.err, HasSubstr(": standard output: "));
}

std::string test_name(const testing::TestParamInfo<Case>& info) {
    std::string name = info.param.command + " " + std::to_string(info.index);
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(EachCommand, ContractTest, testing::ValuesIn(kCases), test_name);

// The table of the commands, as they tell it themselves.

struct Row {
    std::string name;
    std::string arguments;
};

std::vector<Row> command_table() {
    const Json array = parse(tqctl("-j help").out);
    std::vector<Row> rows;
    for (std::size_t i = 0; i < json_object_array_length(array.get()); i++) {
        const Json row(json_object_get(json_object_array_get_idx(array.get(), i)));
        const std::string verb = member(row, "verb");
        rows.push_back(
            {member(row, "family") + (verb.empty() ? "" : " " + verb), member(row, "arguments")});
    }
    return rows;
}

class CommandTableTest : public DeviceTest {
  protected:
    const std::vector<Row> rows = command_table();
};

TEST_F(CommandTableTest, EachCommandHasACaseThatIsDoneAndOneThatIsNot) {
    std::set<std::string> done;
    std::set<std::string> not_done;
    for (const Case& contract : kCases)
        (contract.code == kDone ? done : not_done).insert(contract.command);
    // A view is for a terminal.
    done.insert("stat watch");
#ifdef __mips__
    done.insert("netlink send");
#endif
    std::set<std::string> names;
    for (const Row& row : rows)
        names.insert(row.name);
    EXPECT_EQ(done, names);
    EXPECT_EQ(not_done, names);
}

TEST_F(CommandTableTest, WrongUsageOfEachIsSaidWithItsSynopsis) {
    for (const Row& row : rows) {
        const std::string usage = "\nusage: tqctl [-j] [-q] " + row.name +
                                  (row.arguments.empty() ? "" : " " + row.arguments) + "\n";
        if (row.arguments.find("...") == std::string::npos) {
            const std::string many = row.name + " 1 2 3 4 5 6 7 8 9";
            EXPECT_TRUE(fails(tqctl(many), kUsage, "too many arguments" + usage)) << row.name;
            EXPECT_EQ(tqctl("-j " + many).out, "{}\n") << row.name;
        }
        if (row.arguments.empty() || row.arguments[0] == '[') continue;
        EXPECT_TRUE(fails(tqctl(row.name), kUsage, "an argument is missing" + usage)) << row.name;
        EXPECT_EQ(tqctl("-j " + row.name).out, "{}\n") << row.name;
    }
}

TEST_F(CommandTableTest, EachCommandIsInTheSchema) {
    const Json schema(json_object_from_file(kSchema.c_str()));
    ASSERT_TRUE(schema);
    json_object* properties = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(schema.get(), "properties", &properties));
    std::vector<std::string> described;
    json_object_object_foreach(properties, name, definition) {
        (void)definition;
        described.emplace_back(name);
    }
    std::vector<std::string> names;
    for (const Row& row : rows)
        names.push_back(row.name);
    EXPECT_THAT(described, testing::UnorderedElementsAreArray(names));
}

TEST_F(CommandTableTest, TheSchemaFindsWhatIsWrong) {
    EXPECT_EQ(validate("{\"bus ping\": {\"microseconds\": 7}}\n").status, 0);
    for (const char* wrong : {R"({"bus ping": {"microseconds": "7"}})", R"({"bus ping": [7]})",
                              R"({"bus ping": {"milliseconds": 7}})", R"({"nothing": {}})",
                              R"({"board ports": [{"port": 0}]})", R"({"uci set": {"a": 1}})"}) {
        EXPECT_EQ(validate(std::string(wrong) + "\n").status, 1) << wrong;
    }
}

}  // namespace
