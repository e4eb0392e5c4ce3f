// uci_path_test.cpp - single values of the UCI store: what the file holds, what is staged, what
// another process sees and what the log says, on success and on every way to fail.
#include "tq/uci_path.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <uci.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/buffer.h"
#include "support/device.h"
#include "support/faults.h"
#include "support/log_capture.h"
#include "support/random.h"
#include "uci/store.h"
#include "uci/uci_calls.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Matcher;
using testing::Not;
using tq_test::as_nobody;
using tq_test::Buffer;
using tq_test::CallFails;
using tq_test::CommandResult;
using tq_test::DeviceTest;
using tq_test::exists;
using tq_test::FullDisk;
using tq_test::Line;
using tq_test::live_contexts;
using tq_test::LogCapture;
using tq_test::LogLine;
using tq_test::open_descriptors;
using tq_test::read_file;
using tq_test::ReadOnly;
using tq_test::replaced;
using tq_test::run_command;
using tq_test::seeded;
using tq_test::write_file;
using tq_test::faults::Fail;

using LogLines = std::vector<LogLine>;

constexpr int kNoValue = 4711;
constexpr size_t kLongestPath = 1023;

constexpr const char* kFile = "/etc/config/store";
constexpr const char* kStaged = "/tmp/.uci/store";

// As libuci writes it, so that what a commit changes is all that differs.
constexpr const char* kStore =
    "\n"
    "config alpha 'one'\n"
    "\toption a '1'\n"
    "\toption b 'two words'\n"
    "\tlist l 'x'\n"
    "\tlist l 'y'\n"
    "\n"
    "config beta\n"
    "\toption k 'v0'\n"
    "\n"
    "config beta\n"
    "\toption k 'v1'\n"
    "\tlist m 'p'\n"
    "\n"
    "config alpha 'two'\n"
    "\toption a '-9'\n"
    "\n";

std::string stored() {
    return read_file(kFile);
}

std::string staged() {
    return tq_test::staged("store");
}

CommandResult uci(const std::string& arguments) {
    return run_command("uci " + arguments);
}

bool has_uci_command() {
    return run_command("command -v uci").status == 0;
}

#define NEEDS_UCI_COMMAND() \
    if (!has_uci_command()) GTEST_SKIP() << "this device has no uci command"

// The text that the library duplicates first once it has its nth context is not: there is no
// memory.
class NoMemoryForText {
  public:
    explicit NoMemoryForText(int nth_context) {
        tq_test::behind_context(nth_context, [this] { fail_.emplace("strdup", 1, ENOMEM); });
    }
    ~NoMemoryForText() { EXPECT_TRUE(fail_ && fail_->fired()); }
    NoMemoryForText(const NoMemoryForText&) = delete;
    NoMemoryForText& operator=(const NoMemoryForText&) = delete;

  private:
    std::optional<Fail> fail_;
};

struct ContextFreer {
    void operator()(uci_context* context) const { uci_free_context(context); }
};
using Context = std::unique_ptr<uci_context, ContextFreer>;

Context new_context() {
    return Context(uci_alloc_context());
}

auto Error(const std::string& function, const std::string& text) {
    return Line(LOG_ERR, function, text);
}

auto Info(const std::string& function, const std::string& text) {
    return Line(LOG_INFO, function, text);
}

std::vector<std::string> hidden_files(const char* directory) {
    std::vector<std::string> names;
    DIR* stream = opendir(directory);
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name[0] == '.' && name != "." && name != "..") names.push_back(name);
    }
    closedir(stream);
    return names;
}

// Every call ends with the descriptors and the contexts that there were before it, and leaves no
// file of its work.
class UciPathTest : public DeviceTest {
  protected:
    UciPathTest() {
        write_file(kFile, kStore);
        tq_test::take_overwrites();
    }
    ~UciPathTest() override { EXPECT_EQ(live_contexts(), contexts_); }
    UciPathTest(const UciPathTest&) = delete;
    UciPathTest& operator=(const UciPathTest&) = delete;

    void TearDown() override {
        closelog();
        EXPECT_EQ(open_descriptors(), descriptors_);
        EXPECT_THAT(hidden_files("/etc/config"), IsEmpty());
    }

    // The file is as it was, and nothing waits for the next commit.
    static void expect_nothing_changed() {
        EXPECT_EQ(stored(), kStore);
        EXPECT_EQ(staged(), "");
    }

    static void expect_committed(const std::string& content) {
        EXPECT_EQ(stored(), content);
        EXPECT_EQ(staged(), "");
    }

    LogCapture log_;

  private:
    std::vector<int> descriptors_ = open_descriptors();
    int contexts_ = live_contexts();
};

// uci_cmd_format

class CmdFormat : public UciPathTest {};

struct Path {
    const char* type;
    const char* name;
    int index;
    const char* option;
    const char* value;
    const char* text;
};

TEST_F(CmdFormat, BuildsThePathOfWhatIsGiven) {
    constexpr std::array kPaths = {
        Path{"wifi-iface", nullptr, 2, "ssid", "x", "wireless.@wifi-iface[2].ssid=x"},
        Path{"wifi-iface", nullptr, 2, "ssid", nullptr, "wireless.@wifi-iface[2].ssid"},
        Path{"wifi-iface", nullptr, 0, nullptr, nullptr, "wireless.@wifi-iface[0]"},
        Path{"wifi-iface", nullptr, -1, "ssid", "x", "wireless.@wifi-iface[-1].ssid=x"},
        Path{"wifi-iface", nullptr, INT_MAX, nullptr, nullptr, "wireless.@wifi-iface[2147483647]"},
        Path{"wifi-iface", nullptr, 2, nullptr, "x", "wireless.@wifi-iface[2]"},
        Path{nullptr, "radio0", 2, "ssid", "x", "wireless.radio0.ssid=x"},
        Path{nullptr, "radio0", -1, "ssid", "", "wireless.radio0.ssid="},
        Path{nullptr, "radio0", -1, "ssid", nullptr, "wireless.radio0.ssid"},
        Path{nullptr, "radio0", -1, nullptr, nullptr, "wireless.radio0"},
        Path{nullptr, "radio0", -1, nullptr, "x", "wireless.radio0"},
        Path{"wifi-device", "radio0", 2, "ssid", "x", "wireless.radio0=wifi-device"},
        Path{"wifi-device", "radio0", -1, nullptr, nullptr, "wireless.radio0=wifi-device"},
        Path{nullptr, "%s", -1, "%n", "%d", "wireless.%s.%n=%d"},
    };
    for (const Path& path : kPaths) {
        SCOPED_TRACE(path.text);
        Buffer buf(100);
        EXPECT_EQ(uci_cmd_format(buf.data(), 100, "wireless", path.type, path.name, path.index,
                                 path.option, path.value),
                  0);
        EXPECT_EQ(buf.text(), path.text);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CmdFormat, CutsThePathSilently) {
    const std::string by_id = "wireless.@wifi-iface[2].ssid=x";
    const std::string definition = "wireless.radio0=wifi-device";
    for (int size = 1; size <= 32; size++) {
        SCOPED_TRACE(size);
        const auto room = static_cast<size_t>(size);
        Buffer buf(size);
        EXPECT_EQ(
            uci_cmd_format(buf.data(), room, "wireless", "wifi-iface", nullptr, 2, "ssid", "x"), 0);
        EXPECT_EQ(buf.text(), by_id.substr(0, room - 1));
        EXPECT_TRUE(buf.guard_holds());
        EXPECT_EQ(uci_cmd_format(buf.data(), room, "wireless", "wifi-device", "radio0", -1, nullptr,
                                 nullptr),
                  0);
        EXPECT_EQ(buf.text(), definition.substr(0, room - 1));
        EXPECT_TRUE(buf.guard_holds());
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(CmdFormat, RejectsBadArguments) {
    Buffer buf(10);
    const auto rejected = ElementsAre(Error("uci_cmd_format", "invalid parameters\n"));
    EXPECT_EQ(uci_cmd_format(nullptr, 10, "f", "t", nullptr, 0, "o", "v"), -1);
    EXPECT_THAT(log_.take(), rejected);
    EXPECT_EQ(uci_cmd_format(buf.data(), 0, "f", "t", nullptr, 0, "o", "v"), -1);
    EXPECT_THAT(log_.take(), rejected);
    EXPECT_EQ(uci_cmd_format(buf.data(), 10, nullptr, "t", nullptr, 0, "o", "v"), -1);
    EXPECT_THAT(log_.take(), rejected);
    EXPECT_EQ(uci_cmd_format(buf.data(), 10, "f", nullptr, nullptr, 0, "o", "v"), -1);
    EXPECT_THAT(log_.take(), rejected);
    EXPECT_TRUE(buf.untouched());
}

TEST_F(CmdFormat, RejectsANegativeSize) {
    Buffer buf(10);
    EXPECT_EQ(uci_cmd_format(buf.data(), static_cast<size_t>(-1), "f", "t", nullptr, 0, "o", "v"),
              -1);
    EXPECT_THAT(log_.take(), ElementsAre(Error("uci_cmd_format", "invalid parameters\n")));
    EXPECT_TRUE(buf.untouched());
}

// What the functions that change one place and commit the file have in common. Each row makes one
// change of the file above; place() does it to another file.

struct Change {
    const char* function;
    const char* step;         // the step that the function hands the path to, and logs in
    const char* verb;         // what it calls itself in the log
    bool announced;           // whether it logs the attempt
    const char* path;         // behind the file's name
    const char* own_failure;  // the function's own line for a failed step; "%" is the path
    const char* outer;        // the function's whole name where it works through another setter
    const char* outer_failure;
    const char* from;  // the change of the file's text
    const char* to;
    std::function<int(const char* file)> apply;

    [[nodiscard]] std::string full_path(const std::string& file) const { return file + path; }

    [[nodiscard]] std::string result() const { return replaced(kStore, from, to); }

    // The lines of a success, and those that come before any failure.
    [[nodiscard]] std::vector<Matcher<LogLine>> announcement(const std::string& full) const {
        if (!announced) return {};
        return {Info(step, std::string(verb) + " " + full + "\n")};
    }

    // The lines behind the announcement when the step fails, `cause` first where there is one.
    [[nodiscard]] std::vector<Matcher<LogLine>> step_failure(const std::string& full,
                                                             const std::string& cause = "") const {
        std::vector<Matcher<LogLine>> lines = announcement(full);
        if (!cause.empty()) lines.emplace_back(Error("uci_do_section", cause));
        lines.emplace_back(
            Error(step, "uci_do_section fail, " + std::string(verb) + " " + full + "\n"));
        const std::string own = own_failure;
        lines.emplace_back(
            Error(function, own.find('%') == std::string::npos ? own : replaced(own, "%", full)));
        if (outer) lines.emplace_back(Error(outer, outer_failure));
        return lines;
    }

    [[nodiscard]] std::vector<Matcher<LogLine>> commit_failure(const std::string& cause) const {
        std::vector<Matcher<LogLine>> lines = announcement(full_path("store"));
        lines.emplace_back(Error("uci_commit_cfg", cause));
        lines.emplace_back(Error(function, "uci commit store fail\n"));
        if (outer) lines.emplace_back(Error(outer, outer_failure));
        return lines;
    }
};

std::vector<Change> changes() {
    return {
        {"uci_set_str_option_by_id", "set_uci", "uci set", false, ".@beta[1].k=new value",
         "uci set % fail\n", nullptr, nullptr, "k 'v1'", "k 'new value'",
         [](const char* file) {
             return uci_set_str_option_by_id(file, "beta", 1, "k", "new value");
         }},
        {"uci_set_str_option_by_id", "set_uci", "uci set", false, ".@beta[0].k=4294967295",
         "uci set % fail\n", "uci_set_int_option_by_id",
         "uci_set_str_option_by_id(filename, config_type, id, option, buf) fail\n", "k 'v0'",
         "k '4294967295'",
         [](const char* file) {
             return uci_set_int_option_by_id(file, "beta", 0, "k", static_cast<unsigned>(-1));
         }},
        {"uci_set_str_option_by_name", "set_uci", "uci set", false, ".one.a=it's",
         "uci set % fail\n", nullptr, nullptr, "a '1'", "a 'it'\\''s'",
         [](const char* file) { return uci_set_str_option_by_name(file, "one", "a", "it's"); }},
        {"uci_set_str_option_by_name", "set_uci", "uci set", false, ".two.a=2147483648",
         "uci set % fail\n", "uci_set_int_option_by_name",
         "uci_set_str_option_by_name(filename, config_name, option, buf) fail\n", "a '-9'",
         "a '2147483648'",
         [](const char* file) {
             return uci_set_int_option_by_name(file, "two", "a", 2147483648U);
         }},
        {"uci_add_list_by_name", "add_list", "uci add_list", true, ".one.l=z", "add list % fail\n",
         nullptr, nullptr, "\tlist l 'y'\n", "\tlist l 'y'\n\tlist l 'z'\n",
         [](const char* file) { return uci_add_list_by_name(file, "one", "l", "z"); }},
        {"uci_add_list_by_id", "add_list", "uci add_list", true, ".@beta[1].m=q",
         "add list % fail\n", nullptr, nullptr, "\tlist m 'p'\n", "\tlist m 'p'\n\tlist m 'q'\n",
         [](const char* file) { return uci_add_list_by_id(file, "beta", 1, "m", "q"); }},
        {"uci_del_list_by_name", "del_list", "uci del_list", true, ".one.l=x", "del_list fail\n",
         nullptr, nullptr, "\tlist l 'x'\n", "",
         [](const char* file) { return uci_del_list_by_name(file, "one", "l", "x"); }},
        {"uci_del_list_by_id", "del_list", "uci del_list", true, ".@alpha[0].l=y",
         "del_list fail\n", nullptr, nullptr, "\tlist l 'y'\n", "",
         [](const char* file) { return uci_del_list_by_id(file, "alpha", 0, "l", "y"); }},
        {"uci_add_secition_by_name", "set_uci", "uci set", false, ".three=gamma",
         "uci set % fail\n", nullptr, nullptr, "\toption a '-9'\n\n",
         "\toption a '-9'\n\nconfig gamma 'three'\n\n",
         [](const char* file) { return uci_add_secition_by_name(file, "gamma", "three"); }},
        {"del_uci_section_by_id", "del_uci", "uci del", true, ".@beta[0]", "del_uci(buf) fail\n",
         nullptr, nullptr, "config beta\n\toption k 'v0'\n\n", "",
         [](const char* file) { return del_uci_section_by_id(file, "beta", 0); }},
        {"del_uci_section_by_name", "del_uci", "uci del", true, ".two", "del_uci(buf) fail\n",
         nullptr, nullptr, "config alpha 'two'\n\toption a '-9'\n\n", "",
         [](const char* file) { return del_uci_section_by_name(file, "two"); }},
        {"del_uci_option_by_id", "del_uci", "uci del", true, ".@beta[0].k", "del_uci(buf) fail\n",
         nullptr, nullptr, "\toption k 'v0'\n", "",
         [](const char* file) { return del_uci_option_by_id(file, "beta", 0, "k"); }},
        {"del_uci_option_by_name", "del_uci", "uci del", true, ".one.b", "del_uci(buf) fail\n",
         nullptr, nullptr, "\toption b 'two words'\n", "",
         [](const char* file) { return del_uci_option_by_name(file, "one", "b"); }},
    };
}

// The outermost function that a row calls.
std::string name_of(const Change& change) {
    return change.outer ? change.outer : change.function;
}

void PrintTo(const Change& change, std::ostream* out) {
    *out << name_of(change);
}

class UciChange : public UciPathTest, public testing::WithParamInterface<Change> {};

INSTANTIATE_TEST_SUITE_P(By, UciChange, testing::ValuesIn(changes()),
                         [](const auto& row) { return name_of(row.param); });

TEST_P(UciChange, IsInTheFileAndNothingElseIs) {
    EXPECT_EQ(GetParam().apply("store"), 0);
    expect_committed(GetParam().result());
    EXPECT_THAT(log_.take(),
                ElementsAreArray(GetParam().announcement(GetParam().full_path("store"))));
}

// By libuci itself, as any other program does it.
void stage(const std::string& path, int (*change)(uci_context*, uci_ptr*) = uci_set) {
    const Context context = new_context();
    std::string copy = path;
    uci_ptr target{};
    ASSERT_EQ(uci_lookup_ptr(context.get(), &target, copy.data(), true), UCI_OK);
    ASSERT_EQ(change(context.get(), &target), UCI_OK);
    ASSERT_EQ(uci_save(context.get(), target.p), UCI_OK);
}

TEST_P(UciChange, CommitsWhatOthersHaveStaged) {
    stage("store.one.staged=by another");
    EXPECT_EQ(stored(), kStore);
    EXPECT_EQ(GetParam().apply("store"), 0);
    EXPECT_THAT(stored(), testing::HasSubstr("\toption staged 'by another'\n"));
    EXPECT_EQ(replaced(stored(), "\toption staged 'by another'\n", ""), GetParam().result());
    EXPECT_EQ(staged(), "");
}

TEST_P(UciChange, FailsWithoutTheFile) {
    const std::string path = GetParam().full_path("absent");
    EXPECT_EQ(GetParam().apply("absent"), -1);
    EXPECT_FALSE(exists("/etc/config/absent"));
    EXPECT_FALSE(exists("/tmp/.uci/absent"));
    EXPECT_THAT(log_.take(), ElementsAreArray(GetParam().step_failure(
                                 path, "uci_lookup_ptr fail, " + path + "\n")));
}

TEST_P(UciChange, FailsOnADirectory) {
    mkdir("/etc/config/folder", 0755);
    const std::string path = GetParam().full_path("folder");
    EXPECT_EQ(GetParam().apply("folder"), -1);
    EXPECT_FALSE(exists("/tmp/.uci/folder"));
    EXPECT_THAT(log_.take(), ElementsAreArray(GetParam().step_failure(
                                 path, "uci_lookup_ptr fail, " + path + "\n")));
}

TEST_P(UciChange, LeavesAFileWithASyntaxErrorAsItIs) {
    const std::string broken = std::string(kStore) + "config 'open\n";
    write_file("/etc/config/broken", broken);
    const std::string path = GetParam().full_path("broken");
    EXPECT_EQ(GetParam().apply("broken"), -1);
    EXPECT_EQ(read_file("/etc/config/broken"), broken);
    EXPECT_FALSE(exists("/tmp/.uci/broken"));
    EXPECT_THAT(log_.take(), ElementsAreArray(GetParam().step_failure(
                                 path, "uci_lookup_ptr fail, " + path + "\n")));
}

TEST_P(UciChange, FailsOnAFileThatTheUserMayNotRead) {
    chmod(kFile, 0600);
    const std::string path = GetParam().full_path("store");
    EXPECT_EQ(as_nobody([] { return GetParam().apply("store") == -1 ? 42 : 1; }), 42);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(), ElementsAreArray(GetParam().step_failure(
                                 path, "uci_lookup_ptr fail, " + path + "\n")));
}

TEST_P(UciChange, StaysStagedOnAFileThatTheUserMayNotWrite) {
    EXPECT_EQ(as_nobody([] { return GetParam().apply("store") == -1 ? 42 : 1; }), 42);
    EXPECT_EQ(stored(), kStore);
    EXPECT_NE(staged(), "");
    EXPECT_THAT(log_.take(),
                ElementsAreArray(GetParam().commit_failure("uci_commit fail, store\n")));
}

TEST_P(UciChange, FailsWhereItCannotBeStaged) {
    write_file("/tmp/.uci", "no directory");
    EXPECT_EQ(GetParam().apply("store"), -1);
    EXPECT_EQ(stored(), kStore);
    EXPECT_EQ(read_file("/tmp/.uci"), "no directory");
    EXPECT_THAT(log_.take(),
                ElementsAreArray(GetParam().step_failure(GetParam().full_path("store"))));
}

// Without a change of its own, so that it shows what was waiting.
void commit_later() {
    ASSERT_EQ(del_uci_option_by_name("store", "one", "none"), 0);
}

TEST_P(UciChange, StaysStagedOnAReadOnlyFileSystemUntilTheNextCommit) {
    {
        const ReadOnly locked("/etc/config");
        EXPECT_EQ(GetParam().apply("store"), -1);
        EXPECT_EQ(stored(), kStore);
        EXPECT_NE(staged(), "");
        EXPECT_THAT(log_.take(),
                    ElementsAreArray(GetParam().commit_failure("uci_commit fail, store\n")));
    }
    commit_later();
    expect_committed(GetParam().result());
}

// Whether libuci itself, without us, keeps a file that it cannot write anew.
bool libuci_minds_a_full_disk() {
    write_file("/etc/config/probe", "\nconfig a 'a'\n\toption a '1'\n\n");
    const FullDisk full("/etc/config");
    stage("probe.a.a=2");
    const Context context = new_context();
    uci_package* package = nullptr;
    if (uci_load(context.get(), "probe", &package) != UCI_OK) return false;
    return uci_commit(context.get(), &package, false) != UCI_OK;
}

TEST_P(UciChange, StaysStagedOnAFullDiskUntilTheNextCommit) {
    if (!libuci_minds_a_full_disk()) GTEST_SKIP() << "this libuci does not notice a full disk";
    {
        const FullDisk full("/etc/config");
        EXPECT_EQ(GetParam().apply("store"), -1);
        EXPECT_EQ(stored(), kStore);
        EXPECT_NE(staged(), "");
        EXPECT_THAT(log_.take(),
                    ElementsAreArray(GetParam().commit_failure("uci_commit fail, store\n")));
    }
    commit_later();
    expect_committed(GetParam().result());
}

TEST_P(UciChange, FailsWhereLibuciDoes) {
    const Change& change = GetParam();
    const std::string path = change.full_path("store");
    const std::vector<std::tuple<const char*, int, std::vector<Matcher<LogLine>>>> failures = {
        {"uci_alloc_context", 1, change.step_failure(path, "uci_alloc_context fail\n")},
        {"uci_lookup_ptr", 1, change.step_failure(path, "uci_lookup_ptr fail, " + path + "\n")},
        {"uci_save", 1, change.step_failure(path)},
    };
    for (const auto& [call, nth, lines] : failures) {
        const CallFails fail(call, UCI_ERR_IO, nth);
        EXPECT_EQ(change.apply("store"), -1);
        expect_nothing_changed();
        EXPECT_THAT(log_.take(), ElementsAreArray(lines));
    }
}

TEST_P(UciChange, StaysStagedWhereLibuciFailsToCommit) {
    const Change& change = GetParam();
    const std::vector<std::tuple<const char*, int, const char*>> failures = {
        {"uci_alloc_context", 2, "uci_alloc_context fail\n"},
        {"uci_lookup_ptr", 2, "uci_lookup_ptr fail, store\n"},
        {"uci_commit", 1, "uci_commit fail, store\n"},
    };
    for (const auto& [call, nth, cause] : failures) {
        write_file(kFile, kStore);
        {
            const CallFails fail(call, UCI_ERR_IO, nth);
            EXPECT_EQ(change.apply("store"), -1);
        }
        EXPECT_EQ(stored(), kStore);
        EXPECT_NE(staged(), "");
        EXPECT_THAT(log_.take(), ElementsAreArray(change.commit_failure(cause)));
        commit_later();
        expect_committed(change.result());
        log_.take();
    }
}

TEST_P(UciChange, CommitsTwiceWhereItSetsANumber) {
    const Change& change = GetParam();
    const CallFails none("uci_commit", UCI_OK, 0);
    EXPECT_EQ(change.apply("store"), 0);
    EXPECT_EQ(none.calls(), change.outer ? 2 : 1);
    if (!change.outer) return;

    const std::vector<std::tuple<const char*, int, const char*>> failures = {
        {"uci_alloc_context", 3, "uci_alloc_context fail\n"},
        {"uci_lookup_ptr", 3, "uci_lookup_ptr fail, store\n"},
        {"uci_commit", 2, "uci_commit fail, store\n"},
    };
    for (const auto& [call, nth, cause] : failures) {
        write_file(kFile, kStore);
        const CallFails fail(call, UCI_ERR_IO, nth);
        EXPECT_EQ(change.apply("store"), -1);
        expect_committed(change.result());
        EXPECT_THAT(log_.take(), ElementsAre(Error("uci_commit_cfg", cause),
                                             Error(change.outer, "uci commit store fail\n")));
    }
}

TEST_P(UciChange, IsMergedIntoTheFileAsItIsByThen) {
    EXPECT_EQ(GetParam().apply("store"), 0);
    EXPECT_THAT(tq_test::take_overwrites(), testing::AllOf(Not(IsEmpty()), testing::Each(false)));
}

TEST_P(UciChange, FailsWithoutMemoryForThePath) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const Change& change = GetParam();
    const std::string path = change.full_path("store");
    {
        const NoMemoryForText none(1);
        EXPECT_EQ(change.apply("store"), -1);
    }
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAreArray(change.step_failure(path, "uci_lookup_ptr fail, " + path + "\n")));
    {
        const NoMemoryForText none(2);
        EXPECT_EQ(change.apply("store"), -1);
    }
    EXPECT_EQ(stored(), kStore);
    EXPECT_NE(staged(), "");
    EXPECT_THAT(log_.take(),
                ElementsAreArray(change.commit_failure("uci_lookup_ptr fail, store\n")));
}

// What the setters do besides.

class UciSet : public UciPathTest {};

TEST_F(UciSet, CreatesAMissingOption) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "two", "fresh", "v"), 0);
    expect_committed(replaced(kStore, "a '-9'\n", "a '-9'\n\toption fresh 'v'\n"));
}

TEST_F(UciSet, DeletesTheOptionWithAnEmptyValue) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "b", ""), 0);
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "l", ""), 0);
    EXPECT_EQ(uci_set_str_option_by_id("store", "beta", 1, "k", ""), 0);
    const std::string without_b = replaced(kStore, "\toption b 'two words'\n", "");
    const std::string without_l = replaced(without_b, "\tlist l 'x'\n\tlist l 'y'\n", "");
    expect_committed(replaced(without_l, "\toption k 'v1'\n", ""));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciSet, CreatesNothingWithAnEmptyValue) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "fresh", ""), 0);
    EXPECT_EQ(uci_set_str_option_by_id("store", "beta", 0, "fresh", ""), 0);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(uci_set_str_option_by_name("store", "none", "a", ""), -1);
    EXPECT_EQ(uci_set_str_option_by_id("store", "beta", 2, "k", ""), -1);
    expect_committed(kStore);
}

TEST_F(UciSet, TakesNamesIntoThePathAsTheyAre) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "@beta[-1]", "k", "last"), 0);
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a=x", "y"), 0);
    EXPECT_EQ(del_uci_section_by_name("store", "one.b"), 0);
    Buffer buf(20);
    EXPECT_EQ(uci_get_str_option_by_name("store.two", "a", nullptr, buf.data(), buf.size()), -1);
    EXPECT_EQ(uci_get_str_option_by_id("store", "alpha[1]", 0, "a", buf.data(), buf.size()), -1);
    const std::string changed =
        replaced(replaced(kStore, "k 'v1'", "k 'last'"), "a '1'", "a 'x=y'");
    expect_committed(replaced(changed, "\toption b 'two words'\n", ""));
}

TEST_F(UciSet, TurnsAListIntoAnOption) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "l", "z"), 0);
    expect_committed(replaced(kStore, "list l 'x'\n\tlist l 'y'", "option l 'z'"));
}

TEST_F(UciSet, SucceedsWithTheValueThatIsThere) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a", "1"), 0);
    expect_committed(kStore);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciSet, TakesEverythingBehindTheFirstEqualsSignAsTheValue) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a", "x=y.z=%s%n@[0]"), 0);
    expect_committed(replaced(kStore, "a '1'", "a 'x=y.z=%s%n@[0]'"));
}

TEST_F(UciSet, FailsWithoutTheSection) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "none", "a", "2"), -1);
    EXPECT_EQ(uci_set_int_option_by_id("store", "beta", 2, "k", 2), -1);
    EXPECT_EQ(uci_add_list_by_name("store", "none", "l", "z"), -1);
    expect_nothing_changed();
    EXPECT_THAT(
        log_.take(),
        ElementsAre(
            Error("set_uci", "uci_do_section fail, uci set store.none.a=2\n"),
            Error("uci_set_str_option_by_name", "uci set store.none.a=2 fail\n"),
            Error("set_uci", "uci_do_section fail, uci set store.@beta[2].k=2\n"),
            Error("uci_set_str_option_by_id", "uci set store.@beta[2].k=2 fail\n"),
            Error("uci_set_int_option_by_id",
                  "uci_set_str_option_by_id(filename, config_type, id, option, buf) fail\n"),
            Info("add_list", "uci add_list store.none.l=z\n"),
            Error("add_list", "uci_do_section fail, uci add_list store.none.l=z\n"),
            Error("uci_add_list_by_name", "add list store.none.l=z fail\n")));
}

TEST_F(UciSet, FailsOnANameThatUciDoesNotKnow) {
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a-b", "2"), -1);
    EXPECT_EQ(uci_add_secition_by_name("store", "gamma", "a-b"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_do_section", "uci_lookup_ptr fail, store.one.a-b=2\n"),
                            Error("set_uci", "uci_do_section fail, uci set store.one.a-b=2\n"),
                            Error("uci_set_str_option_by_name", "uci set store.one.a-b=2 fail\n"),
                            Error("uci_do_section", "uci_lookup_ptr fail, store.a-b=gamma\n"),
                            Error("set_uci", "uci_do_section fail, uci set store.a-b=gamma\n"),
                            Error("uci_add_secition_by_name", "uci set store.a-b=gamma fail\n")));
}

TEST_F(UciSet, FailsWhereLibuciFindsNothingToSet) {
    const CallFails missing("uci_set", UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a", "2"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("set_uci", "uci_do_section fail, uci set store.one.a=2\n"),
                            Error("uci_set_str_option_by_name", "uci set store.one.a=2 fail\n")));
}

TEST_F(UciSet, CountsAnIndexBelowMinusOneFromTheEnd) {
    EXPECT_EQ(uci_set_str_option_by_id("store", "beta", -2, "k", "second last"), 0);
    expect_committed(replaced(kStore, "k 'v0'", "k 'second last'"));
}

TEST_F(UciSet, StoresANegativeNumberAsItsUnsignedForm) {
    EXPECT_EQ(uci_set_int_option_by_id("store", "beta", 1, "k", static_cast<unsigned>(-1)), 0);
    expect_committed(replaced(kStore, "k 'v1'", "k '4294967295'"));
    int value = kNoValue;
    EXPECT_EQ(uci_get_int_option_by_id("store", "beta", 1, "k", &value), 0);
    EXPECT_EQ(value, -1);
}

TEST_F(UciSet, ReadsBackEveryKindOfNumber) {
    for (const int number : {0, 1, -1, 42, INT_MAX, INT_MIN, -4711}) {
        SCOPED_TRACE(number);
        const auto word = static_cast<unsigned>(number);
        int value = kNoValue;
        EXPECT_EQ(uci_set_int_option_by_name("store", "one", "a", word), 0);
        EXPECT_THAT(stored(), testing::HasSubstr("a '" + std::to_string(word) + "'\n"));
        EXPECT_EQ(uci_get_int_option_by_name("store", "one", "a", &value), 0);
        EXPECT_EQ(value, number);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciSet, DefinesASectionThatKeepsItsOptions) {
    EXPECT_EQ(uci_add_secition_by_name("store", "gamma", "two"), 0);
    expect_committed(replaced(kStore, "config alpha 'two'", "config gamma 'two'"));
}

TEST_F(UciSet, IsSeenByAnotherProcess) {
    NEEDS_UCI_COMMAND();
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "b", "it's new"), 0);
    const CommandResult seen = uci("get store.one.b");
    EXPECT_EQ(seen.status, 0);
    EXPECT_EQ(seen.out, "it's new\n");
    EXPECT_EQ(uci("changes store").out, "");
}

TEST_F(UciSet, IsStagedForAnotherProcessWhereTheCommitFails) {
    NEEDS_UCI_COMMAND();
    const ReadOnly locked("/etc/config");
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a", "7"), -1);
    EXPECT_EQ(uci("get store.one.a").out, "7\n");
    EXPECT_EQ(uci("changes store").out, "store.one.a='7'\n");
    EXPECT_EQ(stored(), kStore);
}

TEST_F(UciSet, TakesWhatAnotherProcessHasStagedAlong) {
    NEEDS_UCI_COMMAND();
    EXPECT_EQ(uci("set store.two.a=staged").status, 0);
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a", "7"), 0);
    expect_committed(replaced(replaced(kStore, "a '1'", "a '7'"), "a '-9'", "a 'staged'"));
}

// Whether libuci itself notices that a change does not fit into the delta area.
bool libuci_minds_a_full_delta_area() {
    stage("store.one.a=probe");
    if (staged().empty()) return false;
    write_file(kStaged, "");
    const FullDisk full("/tmp");
    const Context context = new_context();
    std::string path = "store.one.a=probe";
    uci_ptr target{};
    uci_lookup_ptr(context.get(), &target, path.data(), true);
    uci_set(context.get(), &target);
    return uci_save(context.get(), target.p) != UCI_OK;
}

TEST_F(UciSet, FailsOnAFullDeltaArea) {
    const bool noticed = libuci_minds_a_full_delta_area();
    if (!noticed) GTEST_SKIP() << "this libuci does not notice that a change could not be staged";
    write_file(kStaged, "");
    const FullDisk full("/tmp");
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "a", "7"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("set_uci", "uci_do_section fail, uci set store.one.a=7\n"),
                            Error("uci_set_str_option_by_name", "uci set store.one.a=7 fail\n")));
}

TEST_F(UciSet, KeepsTextsByteForByte) {
    std::mt19937 random = seeded(4242);
    const std::vector<std::string> kPieces = {
        "'",  "\"", "\\", " ",   "\n",       "\t",           "#",  "=", ".", "%s",
        "$x", "`y", ";",  "[0]", "\xc3\xa9", "\xe2\x82\xac", "ab", "0", "@", "|"};
    for (int round = 0; round < 120; round++) {
        std::string value = "<";
        for (size_t length = random() % 30; length > 0; length--)
            value += kPieces[random() % kPieces.size()];
        value += random() % 2 == 0 ? ">" : "\xc3\xa9";
        SCOPED_TRACE(value);
        ASSERT_EQ(uci_set_str_option_by_name("store", "one", "b", value.c_str()), 0);
        Buffer buf(200);
        ASSERT_EQ(uci_get_str_option_by_name("store", "one", "b", buf.data(), buf.size()), 0);
        ASSERT_EQ(buf.text(), value);
        // Nothing else has moved.
        ASSERT_EQ(uci_get_str_option_by_name("store", "two", "a", buf.data(), buf.size()), 0);
        ASSERT_EQ(buf.text(), "-9");
    }
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "b", "two words"), 0);
    expect_committed(kStore);
}

// A child process that makes changes, with its status.
pid_t start(const std::function<bool()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body() ? 0 : 1);
    return child;
}

bool finishes_well(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && status == 0;
}

bool has_waiting_lock() {
    return read_file("/proc/locks").find("->") != std::string::npos;
}

// Whether libuci itself, waiting for the lock of a file that is replaced in the meantime, goes on
// with the old one.
bool libuci_loses_commits() {
    const std::string file = "/etc/config/probe";
    write_file(file, "\nconfig a 'a'\n\n");
    const int held = open(file.c_str(), O_RDWR | O_CLOEXEC);
    flock(held, LOCK_SH);  // lets others read and makes them wait to write
    const pid_t child = start([held] {
        close(held);
        stage("probe.a.mine=1");
        const Context context = new_context();
        uci_package* package = nullptr;
        return uci_load(context.get(), "probe", &package) == UCI_OK &&
               uci_commit(context.get(), &package, false) == UCI_OK;
    });
    for (int i = 0; i < 200 && !has_waiting_lock(); i++)
        usleep(1000);
    write_file("/etc/config/probe.new", "\nconfig a 'a'\n\toption theirs '1'\n\n");
    rename("/etc/config/probe.new", file.c_str());
    close(held);
    const bool committed = finishes_well(child);
    return !committed || read_file(file).find("theirs") == std::string::npos;
}

TEST_F(UciSet, LosesNothingWhereTwoProcessesSetOptions) {
    if (libuci_loses_commits())
        GTEST_SKIP() << "this libuci loses what is committed at the same time";
    constexpr int kOptions = 40;
    const auto set_all = [](const std::string& prefix) {
        bool done = true;
        for (int i = 0; i < kOptions; i++) {
            const std::string option = prefix + std::to_string(i);
            done &= uci_set_str_option_by_name("store", "one", option.c_str(), option.c_str()) == 0;
        }
        return done;
    };
    const pid_t left = start([&] { return set_all("left"); });
    const pid_t right = start([&] { return set_all("right"); });
    EXPECT_TRUE(finishes_well(left));
    EXPECT_TRUE(finishes_well(right));
    EXPECT_EQ(staged(), "");
    const std::string content = stored();
    for (const std::string prefix : {"left", "right"}) {
        for (int i = 0; i < kOptions; i++) {
            const std::string option = prefix + std::to_string(i);
            std::string line = "\toption ";
            line.append(option).append(" '").append(option).append("'\n");
            EXPECT_THAT(content, testing::HasSubstr(line));
        }
    }
}

TEST_F(UciSet, WorksFromSeveralThreads) {
    std::array<int, 3> failures{};
    {
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < failures.size(); i++) {
            threads.emplace_back([i, &failures] {
                const std::string file = "file" + std::to_string(i);
                write_file("/etc/config/" + file, kStore);
                for (unsigned round = 0; round < 15; round++) {
                    int value = kNoValue;
                    if (uci_set_int_option_by_name(file.c_str(), "one", "a", round) != 0 ||
                        uci_get_int_option_by_name(file.c_str(), "one", "a", &value) != 0 ||
                        value != static_cast<int>(round)) {
                        failures[i]++;
                    }
                }
            });
        }
    }
    EXPECT_THAT(failures, testing::Each(0));
    EXPECT_THAT(log_.take(), IsEmpty());
    for (const char* file : {"/etc/config/file0", "/etc/config/file1", "/etc/config/file2"})
        EXPECT_EQ(read_file(file), replaced(kStore, "a '1'", "a '14'"));
}

// Lists

class UciLists : public UciPathTest {};

TEST_F(UciLists, AreCreatedWithTheirFirstItem) {
    EXPECT_EQ(uci_add_list_by_name("store", "two", "fresh", "first item"), 0);
    expect_committed(replaced(kStore, "a '-9'\n", "a '-9'\n\tlist fresh 'first item'\n"));
}

TEST_F(UciLists, TakeInThePlainOptionTheyReplace) {
    EXPECT_EQ(uci_add_list_by_id("store", "alpha", 0, "a", "2"), 0);
    expect_committed(replaced(kStore, "option a '1'", "list a '1'\n\tlist a '2'"));
}

TEST_F(UciLists, LoseEveryItemOfTheValue) {
    EXPECT_EQ(uci_add_list_by_name("store", "one", "l", "x"), 0);
    EXPECT_EQ(uci_del_list_by_name("store", "one", "l", "x"), 0);
    expect_committed(replaced(kStore, "\tlist l 'x'\n", ""));
}

TEST_F(UciLists, StayWhereNoItemHasTheValue) {
    EXPECT_EQ(uci_del_list_by_name("store", "one", "l", "z"), 0);
    EXPECT_EQ(uci_del_list_by_name("store", "one", "none", "z"), 0);
    EXPECT_EQ(uci_del_list_by_id("store", "alpha", 1, "none", "z"), 0);
    expect_committed(kStore);
    EXPECT_THAT(log_.take(),
                ElementsAre(Info("del_list", "uci del_list store.one.l=z\n"),
                            Info("del_list", "uci del_list store.one.none=z\n"),
                            Info("del_list", "uci del_list store.@alpha[1].none=z\n")));
}

TEST_F(UciLists, TakeWhatLibuciDoesNotFindForDeleted) {
    const CallFails missing("uci_del_list", UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_del_list_by_name("store", "one", "l", "x"), 0);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(), ElementsAre(Info("del_list", "uci del_list store.one.l=x\n")));
}

TEST_F(UciLists, StayWhereLibuciFails) {
    const CallFails fail("uci_del_list", UCI_ERR_MEM);
    EXPECT_EQ(uci_del_list_by_name("store", "one", "l", "x"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAre(Info("del_list", "uci del_list store.one.l=x\n"),
                            Error("del_list", "uci_do_section fail, uci del_list store.one.l=x\n"),
                            Error("uci_del_list_by_name", "del_list fail\n")));
}

// Deleting

class UciDelete : public UciPathTest {};

TEST_F(UciDelete, TakesAWholeList) {
    EXPECT_EQ(del_uci_option_by_name("store", "one", "l"), 0);
    expect_committed(replaced(kStore, "\tlist l 'x'\n\tlist l 'y'\n", ""));
}

TEST_F(UciDelete, CountsAnIndexBelowMinusOneFromTheEnd) {
    EXPECT_EQ(del_uci_section_by_id("store", "beta", -2), 0);
    expect_committed(replaced(kStore, "config beta\n\toption k 'v0'\n\n", ""));
}

TEST_F(UciDelete, CommitsEvenWhereThereIsNothingToDelete) {
    const std::vector<std::pair<std::string, std::function<int()>>> missing = {
        {".one.none", [] { return del_uci_option_by_name("store", "one", "none"); }},
        {".none.none", [] { return del_uci_option_by_name("store", "none", "none"); }},
        {".@beta[0].none", [] { return del_uci_option_by_id("store", "beta", 0, "none"); }},
        {".@beta[7].k", [] { return del_uci_option_by_id("store", "beta", 7, "k"); }},
        {".none", [] { return del_uci_section_by_name("store", "none"); }},
        {".@beta[7]", [] { return del_uci_section_by_id("store", "beta", 7); }},
        {".@none[0]", [] { return del_uci_section_by_id("store", "none", 0); }},
    };
    for (size_t i = 0; i < missing.size(); i++) {
        SCOPED_TRACE(missing[i].first);
        const std::string value = "staged " + std::to_string(i);
        stage("store.one.a=" + value);
        EXPECT_EQ(missing[i].second(), 0);
        expect_committed(replaced(kStore, "a '1'", "a '" + value + "'"));
        EXPECT_THAT(log_.take(),
                    ElementsAre(Info("del_uci", "uci del store" + missing[i].first + "\n")));
    }
}

// Adding a section

class AddUciSection : public UciPathTest {};

TEST_F(AddUciSection, GivesTheIndexAmongTheSectionsOfTheType) {
    EXPECT_EQ(add_uci_section("store", "beta"), 2);
    expect_committed(std::string(kStore) + "config beta\n\n");
    EXPECT_EQ(add_uci_section("store", "beta"), 3);
    EXPECT_EQ(add_uci_section("store", "alpha"), 2);
    EXPECT_EQ(add_uci_section("store", "fresh"), 0);
    expect_committed(std::string(kStore) +
                     "config beta\n\nconfig beta\n\nconfig alpha\n\nconfig fresh\n\n");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(AddUciSection, WritesTheFileAsItHasLoadedIt) {
    EXPECT_EQ(add_uci_section("store", "beta"), 2);
    EXPECT_THAT(tq_test::take_overwrites(), ElementsAre(true));
}

TEST_F(AddUciSection, HasLibuciApplyTwiceWhatWasStaged) {
    stage("store.one.l=z", uci_add_list);
    EXPECT_EQ(add_uci_section("store", "beta"), 2);
    expect_committed(replaced(kStore, "l 'y'\n", "l 'y'\n\tlist l 'z'\n\tlist l 'z'\n") +
                     "config beta\n\n");
}

TEST_F(AddUciSection, GivesAnIndexThatTheOtherFunctionsTake) {
    const int index = add_uci_section("store", "beta");
    EXPECT_EQ(uci_set_str_option_by_id("store", "beta", index, "k", "mine"), 0);
    expect_committed(std::string(kStore) + "config beta\n\toption k 'mine'\n\n");
}

TEST_F(AddUciSection, FillsAnEmptyFile) {
    write_file(kFile, "");
    EXPECT_EQ(add_uci_section("store", "beta"), 0);
    expect_committed("\nconfig beta\n\n");
}

TEST_F(AddUciSection, FailsWithoutAReadableFile) {
    write_file("/etc/config/broken", "config 'open\n");
    mkdir("/etc/config/folder", 0755);
    for (const std::string file : {"absent", "broken", "folder"}) {
        EXPECT_EQ(add_uci_section(file.c_str(), "beta"), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("add_uci_section", "uci_load " + file + " fail\n")));
        EXPECT_FALSE(exists("/tmp/.uci/" + file));
    }
    EXPECT_EQ(read_file("/etc/config/broken"), "config 'open\n");
    EXPECT_FALSE(exists("/etc/config/absent"));
}

TEST_F(AddUciSection, RefusesATypeThatAFileCannotHold) {
    for (const std::string type : {"", "bad type", "a\nb", "\x7f", "caf\xc3\xa9"}) {
        EXPECT_EQ(add_uci_section("store", type.c_str()), -1);
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("add_uci_section", "uci_add_section " + type + " fail\n")));
        expect_nothing_changed();
    }
}

TEST_F(AddUciSection, FailsWhereItCannotBeStaged) {
    write_file("/tmp/.uci", "no directory");
    EXPECT_EQ(add_uci_section("store", "beta"), -1);
    EXPECT_EQ(stored(), kStore);
    EXPECT_THAT(log_.take(), ElementsAre(Error("add_uci_section", "uci_save store fail\n")));
}

TEST_F(AddUciSection, StaysStagedOnAReadOnlyFileSystem) {
    {
        const ReadOnly locked("/etc/config");
        EXPECT_EQ(add_uci_section("store", "beta"), -1);
        EXPECT_EQ(stored(), kStore);
        EXPECT_NE(staged(), "");
        EXPECT_THAT(log_.take(), ElementsAre(Error("add_uci_section", "uci_commit store fail\n")));
    }
    commit_later();
    expect_committed(std::string(kStore) + "config beta\n\n");
}

TEST_F(AddUciSection, FailsWhereLibuciDoes) {
    constexpr std::array kFailures = {
        std::pair{"uci_alloc_context", "uci_alloc_context fail\n"},
        std::pair{"uci_load", "uci_load store fail\n"},
        std::pair{"uci_add_section", "uci_add_section beta fail\n"},
        std::pair{"uci_save", "uci_save store fail\n"},
    };
    for (const auto& [call, text] : kFailures) {
        const CallFails fail(call);
        EXPECT_EQ(add_uci_section("store", "beta"), -1);
        expect_nothing_changed();
        EXPECT_THAT(log_.take(), ElementsAre(Error("add_uci_section", text)));
    }
    const CallFails fail("uci_commit");
    EXPECT_EQ(add_uci_section("store", "beta"), -1);
    EXPECT_EQ(stored(), kStore);
    EXPECT_NE(staged(), "");
    EXPECT_THAT(log_.take(), ElementsAre(Error("add_uci_section", "uci_commit store fail\n")));
}

TEST_F(AddUciSection, OnALoadedPackageIsStagedOnly) {
    const Context context = new_context();
    uci_package* package = nullptr;
    ASSERT_EQ(uci_load(context.get(), "store", &package), UCI_OK);
    EXPECT_EQ(uci_add_section_by_type(context.get(), package, "beta"), 2);
    EXPECT_EQ(uci_add_section_by_type(context.get(), package, "beta"), 3);
    EXPECT_EQ(uci_add_section_by_type(context.get(), package, "!~"), 0);
    EXPECT_EQ(stored(), kStore);
    EXPECT_THAT(log_.take(), IsEmpty());
    commit_later();
    expect_committed(std::string(kStore) + "config beta\n\nconfig beta\n\nconfig !~\n\n");
}

TEST_F(AddUciSection, OnALoadedPackageFailsWhereItCannotBeStaged) {
    write_file("/tmp/.uci", "no directory");
    const Context context = new_context();
    uci_package* package = nullptr;
    ASSERT_EQ(uci_load(context.get(), "store", &package), UCI_OK);
    EXPECT_EQ(uci_add_section_by_type(context.get(), package, "beta"), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_add_section_by_type", "uci_save store fail\n")));
}

TEST_F(AddUciSection, OnALoadedPackageFailsWhereLibuciDoes) {
    const Context context = new_context();
    uci_package* package = nullptr;
    ASSERT_EQ(uci_load(context.get(), "store", &package), UCI_OK);
    const CallFails fail("uci_add_section", UCI_ERR_MEM);
    EXPECT_EQ(uci_add_section_by_type(context.get(), package, "beta"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_add_section_by_type", "uci_add_section beta fail\n")));
}

// Getters

class UciGet : public UciPathTest {
  protected:
    static std::string get(const char* section, const char* option) {
        Buffer buf(200);
        EXPECT_EQ(uci_get_str_option_by_name("store", section, option, buf.data(), buf.size()), 0);
        EXPECT_TRUE(buf.guard_holds());
        return buf.text();
    }

    static int number(const std::string& text) {
        write_file(kFile, "config alpha 'n'\n\toption v '" + text + "'\n");
        int value = kNoValue;
        EXPECT_EQ(uci_get_int_option_by_name("store", "n", "v", &value), 0);
        int by_id = kNoValue;
        EXPECT_EQ(uci_get_int_option_by_id("store", "alpha", 0, "v", &by_id), 0);
        EXPECT_EQ(by_id, value);
        return value;
    }
};

TEST_F(UciGet, ReadsAnOptionByTheSectionsName) {
    EXPECT_EQ(get("one", "a"), "1");
    EXPECT_EQ(get("one", "b"), "two words");
    EXPECT_EQ(get("two", "a"), "-9");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciGet, ReadsAnOptionByTheSectionsIndex) {
    Buffer buf(100);
    EXPECT_EQ(uci_get_str_option_by_id("store", "beta", 0, "k", buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), "v0");
    EXPECT_EQ(uci_get_str_option_by_id("store", "beta", 1, "k", buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), "v1");
    EXPECT_EQ(uci_get_str_option_by_id("store", "beta", -2, "k", buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), "v0");
    EXPECT_EQ(uci_get_str_option_by_id("store", "alpha", 1, "a", buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), "-9");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciGet, JoinsTheItemsOfAListWithOneBlank) {
    EXPECT_EQ(get("one", "l"), "x y");
    write_file(kFile, "config alpha 'one'\n\tlist l ' a '\n\tlist l ''\n\tlist l 'b c'\n");
    EXPECT_EQ(get("one", "l"), " a   b c");
}

TEST_F(UciGet, ReadsTheNameOfASectionWithoutAnOption) {
    Buffer buf(100);
    EXPECT_EQ(uci_get_str_option_by_id("store", "alpha", 1, nullptr, buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), "two");
    // An anonymous section has a name, too, that addresses it.
    EXPECT_EQ(uci_get_str_option_by_id("store", "beta", 1, nullptr, buf.data(), buf.size()), 0);
    EXPECT_EQ(get(buf.text().c_str(), "k"), "v1");
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciGet, DropsWhatIsNotGraphicAtTheEnd) {
    constexpr std::array kTexts = {
        std::pair{"abc \t ", "abc"},
        std::pair{"abc\n\n", "abc"},
        std::pair{" a b ", " a b"},
        std::pair{"abc\x01\x1f\x7f", "abc"},
        std::pair{"a\x01z", "a\x01z"},
        std::pair{" \t\n ", ""},
        std::pair{"caf\xc3\xa9", "caf\xc3\xa9"},
        std::pair{"x\xc2\xa0", "x\xc2\xa0"},
        std::pair{"\x80", "\x80"},
        std::pair{"x\xff ", "x\xff"},
    };
    for (const auto& [text, shown] : kTexts) {
        write_file(kFile, "config alpha 'one'\n\toption a '" + std::string(text) + "'\n");
        EXPECT_EQ(get("one", "a"), shown);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciGet, SeesWhatIsStaged) {
    stage("store.one.a=staged");
    EXPECT_EQ(get("one", "a"), "staged");
    EXPECT_EQ(stored(), kStore);
}

TEST_F(UciGet, ConvertsNumbers) {
    EXPECT_EQ(number("42"), 42);
    EXPECT_EQ(number("-42"), -42);
    EXPECT_EQ(number("+7"), 7);
    EXPECT_EQ(number(" 12"), 12);
    EXPECT_EQ(number("0012"), 12);
    EXPECT_EQ(number("42abc"), 42);
    EXPECT_EQ(number("4.9"), 4);
    EXPECT_EQ(number("0x10"), 0);
    EXPECT_EQ(number("abc"), 0);
    EXPECT_EQ(number("-"), 0);
    EXPECT_EQ(number(" "), 0);
    EXPECT_EQ(number("2147483647"), INT_MAX);
    EXPECT_EQ(number("-2147483648"), INT_MIN);
    EXPECT_EQ(number("2147483648"), INT_MIN);
    EXPECT_EQ(number("4294967295"), -1);
    EXPECT_EQ(number("4294967301"), 5);
    EXPECT_EQ(number("0000000000000000000000000000012"), 12);
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(UciGet, ConvertsTheFirstItemOfAList) {
    write_file(kFile, "config alpha 'n'\n\tlist v '5'\n\tlist v '6'\n");
    int value = kNoValue;
    EXPECT_EQ(uci_get_int_option_by_name("store", "n", "v", &value), 0);
    EXPECT_EQ(value, 5);
}

TEST_F(UciGet, ReportsAMissingValueAtInfoOnly) {
    struct Missing {
        const char* getter;
        const char* path;
        int flags;
        std::function<int(char*, int, int*)> get;
    };
    const std::vector<Missing> all = {
        {"uci_get_str_option_by_name", "store.one.none", 1,
         [](char* buf, int len, int*) {
             return uci_get_str_option_by_name("store", "one", "none", buf, len);
         }},
        {"uci_get_str_option_by_name", "store.none.a", 1,
         [](char* buf, int len, int*) {
             return uci_get_str_option_by_name("store", "none", "a", buf, len);
         }},
        {"uci_get_int_option_by_name", "store.one.none", 1,
         [](char*, int, int* value) {
             return uci_get_int_option_by_name("store", "one", "none", value);
         }},
        {"uci_get_str_option_by_id", "store.@beta[0].none", 5,
         [](char* buf, int len, int*) {
             return uci_get_str_option_by_id("store", "beta", 0, "none", buf, len);
         }},
        {"uci_get_str_option_by_id", "store.@beta[2].k", 5,
         [](char* buf, int len, int*) {
             return uci_get_str_option_by_id("store", "beta", 2, "k", buf, len);
         }},
        {"uci_get_str_option_by_id", "store.@none[0]", 5,
         [](char* buf, int len, int*) {
             return uci_get_str_option_by_id("store", "none", 0, nullptr, buf, len);
         }},
        {"uci_get_int_option_by_id", "store.@beta[1].none", 5,
         [](char*, int, int* value) {
             return uci_get_int_option_by_id("store", "beta", 1, "none", value);
         }},
    };
    for (const Missing& missing : all) {
        SCOPED_TRACE(missing.path);
        Buffer buf(10);
        int value = kNoValue;
        EXPECT_EQ(missing.get(buf.data(), buf.size(), &value), -1);
        EXPECT_EQ(value, kNoValue);
        EXPECT_TRUE(buf.untouched() || buf.text().empty());
        EXPECT_THAT(
            log_.take(),
            ElementsAre(Info("get_uci_option", "ptr.flags = " + std::to_string(missing.flags) +
                                                   ", UCI_LOOKUP_COMPLETE = 2\n"),
                        Info(missing.getter, "uci get " + std::string(missing.path) + " fail\n")));
    }
}

TEST_F(UciGet, LeavesTheTextEmptyWhereThereIsNone) {
    Buffer buf(10);
    EXPECT_EQ(uci_get_str_option_by_name("store", "one", "none", buf.data(), buf.size()), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_EQ(*buf.data(), '\0');
}

TEST_F(UciGet, FailsWithoutAReadableFile) {
    write_file("/etc/config/broken", "config 'open\n");
    mkdir("/etc/config/folder", 0755);
    for (const std::string file : {"absent", "broken", "folder"}) {
        Buffer buf(10);
        EXPECT_EQ(uci_get_str_option_by_name(file.c_str(), "one", "a", buf.data(), buf.size()), -1);
        EXPECT_EQ(buf.text(), "");
        int value = kNoValue;
        EXPECT_EQ(uci_get_int_option_by_id(file.c_str(), "one", 3, "a", &value), -1);
        EXPECT_EQ(value, kNoValue);
        EXPECT_THAT(
            log_.take(),
            ElementsAre(Error("get_uci_option", "uci_lookup_ptr fail, " + file + ".one.a\n"),
                        Info("uci_get_str_option_by_name", "uci get " + file + ".one.a fail\n"),
                        Error("get_uci_option", "uci_lookup_ptr fail, " + file + ".@one[3].a\n"),
                        Info("uci_get_int_option_by_id", "uci get " + file + ".@one[3].a fail\n")));
    }
}

TEST_F(UciGet, FailsOnAFileThatTheUserMayNotRead) {
    chmod(kFile, 0600);
    EXPECT_EQ(as_nobody([] {
                  Buffer buf(10);
                  return uci_get_str_option_by_name("store", "one", "a", buf.data(), buf.size()) ==
                                 -1
                             ? 42
                             : 1;
              }),
              42);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("get_uci_option", "uci_lookup_ptr fail, store.one.a\n"),
                            Info("uci_get_str_option_by_name", "uci get store.one.a fail\n")));
}

struct Fit {
    const char* section;
    const char* option;
    const char* shown;
    int text_length;  // with a blank behind each item of a list
};

TEST_F(UciGet, FailsWhereTheTextReachesTheSizeOfTheBuffer) {
    constexpr std::array kFits = {
        Fit{"one", "b", "two words", 9},
        Fit{"one", "a", "1", 1},
        Fit{"one", "l", "x y", 4},
    };
    for (const Fit& fit : kFits) {
        for (int size = 1; size <= fit.text_length + 2; size++) {
            SCOPED_TRACE(size);
            Buffer buf(size);
            const int result =
                uci_get_str_option_by_name("store", fit.section, fit.option, buf.data(), size);
            EXPECT_TRUE(buf.guard_holds());
            const bool fits = size > fit.text_length;
            EXPECT_EQ(result, fits ? 0 : -1);
            EXPECT_EQ(buf.text(), fits ? fit.shown : "");
            const LogLines lines = log_.take();
            if (fits) {
                EXPECT_THAT(lines, IsEmpty());
                continue;
            }
            EXPECT_THAT(lines, ElementsAre(Error("get_uci_option", "buffer is short\n"),
                                           Info("uci_get_str_option_by_name",
                                                std::string("uci get store.") + fit.section + "." +
                                                    fit.option + " fail\n")));
        }
    }
}

TEST_F(UciGet, FailsWhereTheNameOfTheSectionReachesTheSizeOfTheBuffer) {
    Buffer fitting(4);
    EXPECT_EQ(uci_get_str_option_by_id("store", "alpha", 0, nullptr, fitting.data(), 4), 0);
    EXPECT_EQ(fitting.text(), "one");
    EXPECT_THAT(log_.take(), IsEmpty());
    Buffer buf(3);
    EXPECT_EQ(uci_get_str_option_by_id("store", "alpha", 0, nullptr, buf.data(), 3), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_TRUE(buf.guard_holds());
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("get_uci_option", "buffer is short\n"),
                            Info("uci_get_str_option_by_id", "uci get store.@alpha[0] fail\n")));
}

TEST_F(UciGet, ReadsNumbersOfAtMostThirtyOneBytes) {
    EXPECT_EQ(number(std::string(29, '0') + "12"), 12);
    EXPECT_THAT(log_.take(), IsEmpty());
    write_file(kFile, "config alpha 'n'\n\toption v '" + std::string(30, '0') + "12'\n");
    int value = kNoValue;
    EXPECT_EQ(uci_get_int_option_by_name("store", "n", "v", &value), -1);
    EXPECT_EQ(value, kNoValue);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("get_uci_option", "buffer is short\n"),
                            Info("uci_get_int_option_by_name", "uci get store.n.v fail\n")));
}

TEST_F(UciGet, FailsWhereLibuciDoes) {
    Buffer buf(10);
    int value = kNoValue;
    const CallFails no_context("uci_alloc_context");
    EXPECT_EQ(uci_get_str_option_by_name("store", "one", "a", buf.data(), buf.size()), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("uci_get_value", "uci_alloc_context fail\n"),
                            Info("uci_get_str_option_by_name", "uci get store.one.a fail\n")));
    const CallFails no_lookup("uci_lookup_ptr");
    EXPECT_EQ(uci_get_int_option_by_id("store", "beta", 0, "k", &value), -1);
    EXPECT_EQ(value, kNoValue);
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("get_uci_option", "uci_lookup_ptr fail, store.@beta[0].k\n"),
                            Info("uci_get_int_option_by_id", "uci get store.@beta[0].k fail\n")));
}

// Paths that do not fit

class LongPath : public UciPathTest {
  protected:
    // Such a value that "store" + the path before it + the value has `length` bytes.
    static std::string value_for(const std::string& path, size_t length) {
        return std::string(length - std::string("store").size() - path.size(), 'v');
    }

    static std::string cut(const std::string& path) { return path.substr(0, kLongestPath); }
};

TEST_F(LongPath, OfTheLongestKindIsTaken) {
    const std::string by_name = value_for(".one.b=", kLongestPath);
    EXPECT_EQ(uci_set_str_option_by_name("store", "one", "b", by_name.c_str()), 0);
    const std::string by_id = value_for(".@beta[0].k=", kLongestPath);
    EXPECT_EQ(uci_set_str_option_by_id("store", "beta", 0, "k", by_id.c_str()), 0);
    const std::string item = value_for(".one.l=", kLongestPath);
    EXPECT_EQ(uci_add_list_by_name("store", "one", "l", item.c_str()), 0);
    const std::string changed = replaced(replaced(kStore, "two words", by_name), "v0", by_id);
    expect_committed(replaced(changed, "list l 'y'\n", "list l 'y'\n\tlist l '" + item + "'\n"));
    EXPECT_EQ(uci_del_list_by_name("store", "one", "l", item.c_str()), 0);
    expect_committed(changed);

    Buffer buf(2000);
    EXPECT_EQ(uci_get_str_option_by_name("store", "one", "b", buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), by_name);
    const std::string section = value_for(".", kLongestPath - 2);
    EXPECT_EQ(uci_add_secition_by_name("store", "t", section.c_str()), 0);
    EXPECT_THAT(stored(), testing::HasSubstr("config t '" + section + "'\n"));
}

TEST_F(LongPath, IsRefusedByTheSetters) {
    for (const size_t length : {kLongestPath + 1, kLongestPath + 100, size_t{5000}}) {
        SCOPED_TRACE(length);
        const std::string by_name = value_for(".one.b=", length);
        EXPECT_EQ(uci_set_str_option_by_name("store", "one", "b", by_name.c_str()), -1);
        const std::string name_path = cut("store.one.b=" + by_name);
        const std::string by_id = value_for(".@beta[0].k=", length);
        EXPECT_EQ(uci_set_str_option_by_id("store", "beta", 0, "k", by_id.c_str()), -1);
        const std::string id_path = cut("store.@beta[0].k=" + by_id);
        expect_nothing_changed();
        EXPECT_THAT(
            log_.take(),
            ElementsAre(Error("set_uci", "uci_do_section fail, uci set " + name_path + "\n"),
                        Error("uci_set_str_option_by_name", "uci set " + name_path + " fail\n"),
                        Error("set_uci", "uci_do_section fail, uci set " + id_path + "\n"),
                        Error("uci_set_str_option_by_id", "uci set " + id_path + " fail\n")));
    }
}

TEST_F(LongPath, IsRefusedByTheIntegerSetters) {
    const std::string option(kLongestPath - std::string("store.one.=123").size(), 'o');
    EXPECT_EQ(uci_set_int_option_by_name("store", "one", option.c_str(), 123), 0);
    EXPECT_THAT(stored(), testing::HasSubstr("\toption " + option + " '123'\n"));
    EXPECT_THAT(log_.take(), IsEmpty());
    const std::string before = stored();
    EXPECT_EQ(uci_set_int_option_by_name("store", "one", option.c_str(), 1234), -1);
    expect_committed(before);
    const std::string path = "store.one." + option + "=123";
    EXPECT_THAT(
        log_.take(),
        ElementsAre(
            Error("set_uci", "uci_do_section fail, uci set " + path + "\n"),
            Error("uci_set_str_option_by_name", "uci set " + path + " fail\n"),
            Error("uci_set_int_option_by_name",
                  "uci_set_str_option_by_name(filename, config_name, option, buf) fail\n")));
}

TEST_F(LongPath, IsRefusedByTheListFunctions) {
    const std::string by_name = value_for(".one.l=", kLongestPath + 1);
    const std::string by_id = value_for(".@beta[1].m=", kLongestPath + 1);
    const std::string name_path = cut("store.one.l=" + by_name);
    const std::string id_path = cut("store.@beta[1].m=" + by_id);
    EXPECT_EQ(uci_add_list_by_name("store", "one", "l", by_name.c_str()), -1);
    EXPECT_EQ(uci_add_list_by_id("store", "beta", 1, "m", by_id.c_str()), -1);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Info("add_list", "uci add_list " + name_path + "\n"),
                    Error("add_list", "uci_do_section fail, uci add_list " + name_path + "\n"),
                    Error("uci_add_list_by_name", "add list " + name_path + " fail\n"),
                    Info("add_list", "uci add_list " + id_path + "\n"),
                    Error("add_list", "uci_do_section fail, uci add_list " + id_path + "\n"),
                    Error("uci_add_list_by_id", "add list " + id_path + " fail\n")));
    EXPECT_EQ(uci_del_list_by_name("store", "one", "l", by_name.c_str()), -1);
    EXPECT_EQ(uci_del_list_by_id("store", "beta", 1, "m", by_id.c_str()), -1);
    EXPECT_THAT(
        log_.take(),
        ElementsAre(Info("del_list", "uci del_list " + name_path + "\n"),
                    Error("del_list", "uci_do_section fail, uci del_list " + name_path + "\n"),
                    Error("uci_del_list_by_name", "del_list fail\n"),
                    Info("del_list", "uci del_list " + id_path + "\n"),
                    Error("del_list", "uci_do_section fail, uci del_list " + id_path + "\n"),
                    Error("uci_del_list_by_id", "del_list fail\n")));
    expect_nothing_changed();
}

TEST_F(LongPath, IsRefusedByTheDeletersAndTheSectionAdder) {
    // Cut after 1023 bytes it would be a section or an option that is there.
    const std::string name(kLongestPath - std::string("store.").size(), 's');
    const std::string longer = name + "s";
    ASSERT_EQ(uci_add_secition_by_name("store", "t", name.substr(2).c_str()), 0);
    const std::string before = stored();
    log_.take();
    EXPECT_EQ(del_uci_section_by_name("store", longer.c_str()), -1);
    EXPECT_EQ(del_uci_section_by_id("store", longer.c_str(), 0), -1);
    EXPECT_EQ(del_uci_option_by_name("store", longer.c_str(), "a"), -1);
    EXPECT_EQ(del_uci_option_by_id("store", "beta", 0, longer.c_str()), -1);
    EXPECT_EQ(uci_add_secition_by_name("store", "t", longer.c_str()), -1);
    expect_committed(before);
    const auto lines = [](const char* function, const std::string& path) {
        return std::vector<Matcher<LogLine>>{
            Info("del_uci", "uci del " + path + "\n"),
            Error("del_uci", "uci_do_section fail, uci del " + path + "\n"),
            Error(function, "del_uci(buf) fail\n")};
    };
    std::vector<Matcher<LogLine>> expected;
    const auto append = [&expected](const std::vector<Matcher<LogLine>>& more) {
        expected.insert(expected.end(), more.begin(), more.end());
    };
    append(lines("del_uci_section_by_name", "store." + name));
    append(lines("del_uci_section_by_id", cut("store.@" + longer)));
    append(lines("del_uci_option_by_name", "store." + name));
    append(lines("del_uci_option_by_id", cut("store.@beta[0]." + longer)));
    append({Error("set_uci", "uci_do_section fail, uci set store." + name + "\n"),
            Error("uci_add_secition_by_name", "uci set store." + name + " fail\n")});
    EXPECT_THAT(log_.take(), ElementsAreArray(expected));
}

TEST_F(LongPath, IsRefusedByTheGetters) {
    const std::string option(kLongestPath - std::string("store.one.").size(), 'o');
    write_file(kFile, "config alpha 'one'\n\toption " + option + " '17'\n");
    Buffer buf(10);
    EXPECT_EQ(uci_get_str_option_by_name("store", "one", option.c_str(), buf.data(), buf.size()),
              0);
    EXPECT_EQ(buf.text(), "17");
    EXPECT_THAT(log_.take(), IsEmpty());

    const std::string longer = option + "o";
    EXPECT_EQ(uci_get_str_option_by_name("store", "one", longer.c_str(), buf.data(), buf.size()),
              -1);
    EXPECT_EQ(buf.text(), "");
    int value = kNoValue;
    EXPECT_EQ(uci_get_int_option_by_name("store", "one", longer.c_str(), &value), -1);
    EXPECT_EQ(uci_get_int_option_by_id("store", "alpha", 0, longer.c_str(), &value), -1);
    EXPECT_EQ(value, kNoValue);
    const LogLines lines = log_.take();
    const std::string path = "store.one." + option;
    EXPECT_THAT(lines, testing::Contains(
                           Info("uci_get_str_option_by_name", "uci get " + path + " fail\n")));
    EXPECT_THAT(lines, testing::Contains(
                           Info("uci_get_int_option_by_name", "uci get " + path + " fail\n")));
    EXPECT_THAT(lines,
                testing::Contains(Info("uci_get_int_option_by_id",
                                       "uci get " + cut("store.@alpha[0]." + option) + " fail\n")));
    EXPECT_EQ(lines.size(), 6U);
}

TEST_F(LongPath, IsRefusedInACallersContext) {
    const std::string fitting = "store.one.b=" + value_for(".one.b=", kLongestPath);
    const std::string longer = fitting + "v";
    {
        const Context context = new_context();
        EXPECT_EQ(set_uci_option(context.get(), longer.c_str()), -1);
        EXPECT_EQ(del_uci_element(context.get(), longer.c_str(), 0), -1);
        Buffer buf(2000);
        EXPECT_EQ(get_uci_option(context.get(), longer.c_str(), buf.data(), buf.size()), -1);
        EXPECT_EQ(buf.text(), "");
        expect_nothing_changed();
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("set_uci_option", "uci_lookup_ptr fail: " + longer + "\n"),
                                Error("del_uci_element", "uci_lookup_ptr fail: " + longer + "\n"),
                                Error("get_uci_option", "uci_lookup_ptr fail, " + longer + "\n")));
    }
    const Context context = new_context();
    EXPECT_EQ(set_uci_option(context.get(), fitting.c_str()), 0);
    EXPECT_THAT(staged(), testing::HasSubstr("vvv"));
}

// In a context of the caller's

class InContext : public UciPathTest {
  protected:
    // What the next commit makes of the file.
    static std::string after_commit() {
        commit_later();
        return stored();
    }

    Context context_ = new_context();
};

TEST_F(InContext, SetsWithoutCommitting) {
    EXPECT_EQ(set_uci_option(context_.get(), "store.one.a=2"), 0);
    EXPECT_EQ(set_uci_option(context_.get(), "store.three=gamma"), 0);
    EXPECT_EQ(set_uci_option(context_.get(), "store.three.x=y"), 0);
    EXPECT_EQ(set_uci_option(context_.get(), "store.@beta[1].k=z"), 0);
    EXPECT_EQ(stored(), kStore);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(after_commit(), replaced(replaced(kStore, "a '1'", "a '2'"), "k 'v1'", "k 'z'") +
                                  "config gamma 'three'\n\toption x 'y'\n\n");
}

TEST_F(InContext, SetsNothingWithoutAValueOrASection) {
    EXPECT_EQ(set_uci_option(context_.get(), "store.one.a"), -1);
    EXPECT_EQ(set_uci_option(context_.get(), "store.none.a=2"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(), ElementsAre(Error("set_uci_option", "uci set store.one.a fail\n"),
                                         Error("set_uci_option", "uci set store.none.a=2 fail\n")));
}

TEST_F(InContext, FailsOnAPathThatUciDoesNotKnow) {
    Buffer buf(10);
    for (const std::string path : {"absent.one.a=2", "", "store.", ".one", "store.one.a.b",
                                   "store.@beta[x].k=1", "store.%n"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(set_uci_option(context_.get(), path.c_str()), -1);
        EXPECT_EQ(del_uci_element(context_.get(), path.c_str(), 0), -1);
        EXPECT_EQ(del_uci_element(context_.get(), path.c_str(), 1), -1);
        EXPECT_EQ(get_uci_option(context_.get(), path.c_str(), buf.data(), buf.size()), -1);
        EXPECT_EQ(buf.text(), "");
        EXPECT_THAT(log_.take(),
                    ElementsAre(Error("set_uci_option", "uci_lookup_ptr fail: " + path + "\n"),
                                Error("del_uci_element", "uci_lookup_ptr fail: " + path + "\n"),
                                Error("del_uci_element", "uci_lookup_ptr fail: " + path + "\n"),
                                Error("get_uci_option", "uci_lookup_ptr fail, " + path + "\n")));
    }
    expect_nothing_changed();
}

TEST_F(InContext, FailsWhereTheChangeCannotBeStaged) {
    write_file("/tmp/.uci", "no directory");
    EXPECT_EQ(set_uci_option(context_.get(), "store.one.a=2"), -1);
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.b", 0), -1);
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.l", 1), -1);
    EXPECT_EQ(stored(), kStore);
    EXPECT_THAT(log_.take(), ElementsAre(Error("set_uci_option", "uci_save fail: store.one.a=2\n"),
                                         Error("del_uci_element", "uci_save fail: store.one.b\n"),
                                         Error("del_uci_element", "uci_save fail: store.one.l\n")));
}

TEST_F(InContext, DeletesWithoutCommitting) {
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.b", 0), 0);
    EXPECT_EQ(del_uci_element(context_.get(), "store.@beta[0]", 1), 0);
    EXPECT_EQ(stored(), kStore);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(after_commit(), replaced(replaced(kStore, "\toption b 'two words'\n", ""),
                                       "config beta\n\toption k 'v0'\n\n", ""));
}

TEST_F(InContext, DeletesOneItemOfAListByItsPosition) {
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.l=1", 0), 0);
    EXPECT_EQ(stored(), kStore);
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_EQ(after_commit(), replaced(kStore, "\tlist l 'y'\n", ""));
}

TEST_F(InContext, RefusesAPositionThatIsNoNumber) {
    for (const int strict : {0, 1}) {
        for (const std::string path :
             {"store.one.l=x", "store.one.l=", "store.one.a=-", "store.one=%n"}) {
            EXPECT_EQ(del_uci_element(context_.get(), path.c_str(), strict), -1);
            EXPECT_THAT(log_.take(),
                        ElementsAre(Error("del_uci_element", "invalid: " + path + "\n")));
        }
    }
    expect_nothing_changed();
}

TEST_F(InContext, ReportsAMissingElementOnlyWhereAskedTo) {
    for (const char* path : {"store.one.none", "store.none", "store.none.a", "store.@beta[7]"}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(del_uci_element(context_.get(), path, 0), 0);
        EXPECT_EQ(del_uci_element(context_.get(), path, 1), UCI_ERR_NOTFOUND);
        EXPECT_EQ(del_uci_element(context_.get(), path, -1), UCI_ERR_NOTFOUND);
    }
    EXPECT_EQ(UCI_ERR_NOTFOUND, 3);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(InContext, SavesWhereAMissingElementIsASuccess) {
    const CallFails none("uci_save", UCI_OK, 0);
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.none", 1), UCI_ERR_NOTFOUND);
    EXPECT_EQ(none.calls(), 0);
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.none", 0), 0);
    EXPECT_EQ(none.calls(), 1);
}

TEST_F(InContext, GivesAnyOtherErrorOfLibuciAsItIs) {
    // A whole file is nothing that can be deleted.
    EXPECT_EQ(del_uci_element(context_.get(), "store", 0), UCI_ERR_INVAL);
    EXPECT_EQ(del_uci_element(context_.get(), "store", 1), UCI_ERR_INVAL);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(), ElementsAre(Error("del_uci_element", "uci del store fail\n"),
                                         Error("del_uci_element", "uci del store fail\n")));
}

TEST_F(InContext, GivesEveryCodeOfADeleteThatFails) {
    for (int code = 1; code < UCI_ERR_LAST; code++) {
        for (const int strict : {0, 1}) {
            const CallFails fail("uci_delete", code);
            const bool missing = code == UCI_ERR_NOTFOUND;
            EXPECT_EQ(del_uci_element(context_.get(), "store.one.a", strict),
                      missing && strict == 0 ? 0 : code);
            const LogLines lines = log_.take();
            if (missing) {
                EXPECT_THAT(lines, IsEmpty());
            } else {
                EXPECT_THAT(lines,
                            ElementsAre(Error("del_uci_element", "uci del store.one.a fail\n")));
            }
        }
    }
    expect_nothing_changed();
}

TEST_F(InContext, FailsWhereLibuciDoes) {
    const CallFails no_set("uci_set", UCI_ERR_MEM);
    EXPECT_EQ(set_uci_option(context_.get(), "store.one.a=2"), -1);
    const CallFails no_save("uci_save");
    EXPECT_EQ(set_uci_option(context_.get(), "store.one.a=2"), -1);
    expect_nothing_changed();
    EXPECT_THAT(log_.take(),
                ElementsAre(Error("set_uci_option", "uci set store.one.a=2 fail\n"),
                            Error("set_uci_option", "uci_save fail: store.one.a=2\n")));
}

TEST_F(InContext, ReadsSectionsOptionsAndLists) {
    constexpr std::array kTexts = {
        std::pair{"store.one", "one"},       std::pair{"store.@alpha[1]", "two"},
        std::pair{"store.one.a", "1"},       std::pair{"store.one.l", "x y"},
        std::pair{"store.@beta[0].k", "v0"}, std::pair{"store.@beta[-1].m", "p"},
    };
    for (const auto& [path, text] : kTexts) {
        Buffer buf(20);
        EXPECT_EQ(get_uci_option(context_.get(), path, buf.data(), buf.size()), 0);
        EXPECT_EQ(buf.text(), text);
    }
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(InContext, ReadsNoWholeFile) {
    Buffer buf(20);
    EXPECT_EQ(get_uci_option(context_.get(), "store", buf.data(), buf.size()), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_THAT(log_.take(), ElementsAre(Error("get_uci_option", "unknown\n")));
}

TEST_F(InContext, ReportsAMissingElementAtInfo) {
    Buffer buf(20);
    EXPECT_EQ(get_uci_option(context_.get(), "store.one.none", buf.data(), buf.size()), -1);
    EXPECT_EQ(buf.text(), "");
    EXPECT_THAT(log_.take(),
                ElementsAre(Info("get_uci_option", "ptr.flags = 1, UCI_LOOKUP_COMPLETE = 2\n")));
}

TEST_F(InContext, SeesItsOwnChanges) {
    Buffer buf(20);
    EXPECT_EQ(set_uci_option(context_.get(), "store.one.a=2"), 0);
    EXPECT_EQ(get_uci_option(context_.get(), "store.one.a", buf.data(), buf.size()), 0);
    EXPECT_EQ(buf.text(), "2");
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.a", 1), 0);
    EXPECT_EQ(del_uci_element(context_.get(), "store.one.a", 1), UCI_ERR_NOTFOUND);
}

// Rejected arguments

struct Rejection {
    const char* function;
    const char* text;
    std::function<int()> call;
};

class UciRejects : public UciPathTest {
  protected:
    void check(const std::vector<Rejection>& rejections) {
        for (const Rejection& rejection : rejections) {
            SCOPED_TRACE(rejection.text);
            EXPECT_EQ(rejection.call(), -1);
            EXPECT_THAT(log_.take(), ElementsAre(Error(rejection.function, rejection.text)));
        }
        expect_nothing_changed();
    }
};

constexpr const char* kNull = nullptr;

// A setter or list function by index: each argument missing in turn, and the index that is none.
template <typename Setter>
std::vector<Rejection> by_id(const char* function, Setter set) {
    return {
        {function,
         "invalid parameter, filename = (null), config_type = t, id = 3, option = o, value = v\n",
         [set] { return set(kNull, "t", 3, "o", "v"); }},
        {function,
         "invalid parameter, filename = store, config_type = (null), id = 3, option = o, value = "
         "v\n",
         [set] { return set("store", kNull, 3, "o", "v"); }},
        {function,
         "invalid parameter, filename = store, config_type = t, id = -1, option = o, value = v\n",
         [set] { return set("store", "t", -1, "o", "v"); }},
        {function,
         "invalid parameter, filename = store, config_type = t, id = 3, option = (null), value = "
         "v\n",
         [set] { return set("store", "t", 3, kNull, "v"); }},
        {function,
         "invalid parameter, filename = store, config_type = t, id = 3, option = o, value = "
         "(null)\n",
         [set] { return set("store", "t", 3, "o", kNull); }},
    };
}

template <typename Setter>
std::vector<Rejection> by_name(const char* function, Setter set) {
    return {
        {function, "invalid parameter, filename = (null), config_name = n, option = o, value = v\n",
         [set] { return set(kNull, "n", "o", "v"); }},
        {function,
         "invalid parameter, filename = store, config_name = (null), option = o, value = v\n",
         [set] { return set("store", kNull, "o", "v"); }},
        {function,
         "invalid parameter, filename = store, config_name = n, option = (null), value = v\n",
         [set] { return set("store", "n", kNull, "v"); }},
        {function,
         "invalid parameter, filename = store, config_name = n, option = o, value = (null)\n",
         [set] { return set("store", "n", "o", kNull); }},
    };
}

TEST_F(UciRejects, MissingArgumentsOfTheSetters) {
    check(by_id("uci_set_str_option_by_id", uci_set_str_option_by_id));
    check(by_name("uci_set_str_option_by_name", uci_set_str_option_by_name));
}

TEST_F(UciRejects, MissingArgumentsOfTheListFunctions) {
    check(by_id("uci_add_list_by_id", uci_add_list_by_id));
    check(by_name("uci_add_list_by_name", uci_add_list_by_name));
    check(by_id("uci_del_list_by_id", uci_del_list_by_id));
    check(by_name("uci_del_list_by_name", uci_del_list_by_name));
}

TEST_F(UciRejects, MissingArgumentsOfTheIntegerSetters) {
    constexpr const char* kById = "uci_set_int_option_by_id";
    constexpr const char* kByName = "uci_set_int_option_by_name";
    check({
        {kById,
         "invalid parameter, filename = (null), config_type = t, id = 3, option = o, value = 7\n",
         [] { return uci_set_int_option_by_id(kNull, "t", 3, "o", 7); }},
        {kById,
         "invalid parameter, filename = store, config_type = (null), id = 3, option = o, value = "
         "7\n",
         [] { return uci_set_int_option_by_id("store", kNull, 3, "o", 7); }},
        {kById,
         "invalid parameter, filename = store, config_type = t, id = -1, option = o, value = 7\n",
         [] { return uci_set_int_option_by_id("store", "t", -1, "o", 7); }},
        {kById,
         "invalid parameter, filename = store, config_type = t, id = 3, option = (null), value = "
         "-1\n",
         [] { return uci_set_int_option_by_id("store", "t", 3, kNull, UINT_MAX); }},
        {kByName, "invalid parameter, filename = (null), config_name = n, option = o, value = 7\n",
         [] { return uci_set_int_option_by_name(kNull, "n", "o", 7); }},
        {kByName,
         "invalid parameter, filename = store, config_name = (null), option = o, value = 7\n",
         [] { return uci_set_int_option_by_name("store", kNull, "o", 7); }},
        {kByName,
         "invalid parameter, filename = store, config_name = n, option = (null), value = -1\n",
         [] { return uci_set_int_option_by_name("store", "n", kNull, UINT_MAX); }},
    });
}

TEST_F(UciRejects, MissingArgumentsOfTheDeleters) {
    check({
        {"del_uci_section_by_id", "invalid parameter, filename = (null), config_type = t, id = 3\n",
         [] { return del_uci_section_by_id(kNull, "t", 3); }},
        {"del_uci_section_by_id",
         "invalid parameter, filename = store, config_type = (null), id = 3\n",
         [] { return del_uci_section_by_id("store", kNull, 3); }},
        {"del_uci_section_by_id",
         "invalid parameter, filename = store, config_type = beta, id = -1\n",
         [] { return del_uci_section_by_id("store", "beta", -1); }},
        {"del_uci_option_by_id",
         "invalid parameter, filename = (null), config_type = t, id = 3, option = o\n",
         [] { return del_uci_option_by_id(kNull, "t", 3, "o"); }},
        {"del_uci_option_by_id",
         "invalid parameter, filename = store, config_type = (null), id = 3, option = o\n",
         [] { return del_uci_option_by_id("store", kNull, 3, "o"); }},
        {"del_uci_option_by_id",
         "invalid parameter, filename = store, config_type = beta, id = -1, option = k\n",
         [] { return del_uci_option_by_id("store", "beta", -1, "k"); }},
        {"del_uci_option_by_id",
         "invalid parameter, filename = store, config_type = beta, id = 0, option = (null)\n",
         [] { return del_uci_option_by_id("store", "beta", 0, kNull); }},
        {"del_uci_section_by_name", "invalid parameter, filename = (null), cfg_name = one\n",
         [] { return del_uci_section_by_name(kNull, "one"); }},
        {"del_uci_section_by_name", "invalid parameter, filename = store, cfg_name = (null)\n",
         [] { return del_uci_section_by_name("store", kNull); }},
        {"del_uci_option_by_name",
         "invalid parameter, filename = (null), cfg_name = one, option = a\n",
         [] { return del_uci_option_by_name(kNull, "one", "a"); }},
        {"del_uci_option_by_name",
         "invalid parameter, filename = store, cfg_name = (null), option = a\n",
         [] { return del_uci_option_by_name("store", kNull, "a"); }},
        {"del_uci_option_by_name",
         "invalid parameter, filename = store, cfg_name = one, option = (null)\n",
         [] { return del_uci_option_by_name("store", "one", kNull); }},
    });
}

TEST_F(UciRejects, MissingArgumentsOfTheSectionAdders) {
    const Context context = new_context();
    uci_package* package = nullptr;
    ASSERT_EQ(uci_load(context.get(), "store", &package), UCI_OK);
    check({
        {"uci_add_secition_by_name",
         "invalid parameter, filename = (null), cfg_type = t, cfg_name = n\n",
         [] { return uci_add_secition_by_name(kNull, "t", "n"); }},
        {"uci_add_secition_by_name",
         "invalid parameter, filename = store, cfg_type = (null), cfg_name = n\n",
         [] { return uci_add_secition_by_name("store", kNull, "n"); }},
        {"uci_add_secition_by_name",
         "invalid parameter, filename = store, cfg_type = , cfg_name = one\n",
         [] { return uci_add_secition_by_name("store", "", "one"); }},
        {"uci_add_secition_by_name",
         "invalid parameter, filename = store, cfg_type = t, cfg_name = (null)\n",
         [] { return uci_add_secition_by_name("store", "t", kNull); }},
        {"add_uci_section", "invalid parameters, filename = (null), config_type = t\n",
         [] { return add_uci_section(kNull, "t"); }},
        {"add_uci_section", "invalid parameters, filename = store, config_type = (null)\n",
         [] { return add_uci_section("store", kNull); }},
        {"uci_add_section_by_type", "invalid parameters\n",
         [&] { return uci_add_section_by_type(nullptr, package, "t"); }},
        {"uci_add_section_by_type", "invalid parameters\n",
         [&] { return uci_add_section_by_type(context.get(), nullptr, "t"); }},
        {"uci_add_section_by_type", "invalid parameters\n",
         [&] { return uci_add_section_by_type(context.get(), package, kNull); }},
    });
}

TEST_F(UciRejects, MissingArgumentsOfTheGetters) {
    Buffer buf(10);
    int value = kNoValue;
    constexpr const char* kStrByName = "uci_get_str_option_by_name";
    constexpr const char* kStrById = "uci_get_str_option_by_id";
    constexpr const char* kIntByName = "uci_get_int_option_by_name";
    constexpr const char* kIntById = "uci_get_int_option_by_id";
    constexpr const char* kText = "invalid parameters\n";
    check({
        {kStrByName, kText,
         [&] { return uci_get_str_option_by_name(kNull, "one", "a", buf.data(), 10); }},
        {kStrByName, kText,
         [&] { return uci_get_str_option_by_name("store", kNull, "a", buf.data(), 10); }},
        {kStrByName, kText,
         [&] { return uci_get_str_option_by_name("store", "one", kNull, buf.data(), 10); }},
        {kStrById, kText,
         [&] { return uci_get_str_option_by_id(kNull, "beta", 0, "k", buf.data(), 10); }},
        {kStrById, kText,
         [&] { return uci_get_str_option_by_id("store", kNull, 0, "k", buf.data(), 10); }},
        {kStrById, kText,
         [&] { return uci_get_str_option_by_id("store", "beta", -1, "k", buf.data(), 10); }},
        {kIntByName, kText, [&] { return uci_get_int_option_by_name(kNull, "one", "a", &value); }},
        {kIntByName, kText,
         [&] { return uci_get_int_option_by_name("store", kNull, "a", &value); }},
        {kIntByName, kText,
         [&] { return uci_get_int_option_by_name("store", "one", kNull, &value); }},
        {kIntByName, kText,
         [&] { return uci_get_int_option_by_name("store", "one", "a", nullptr); }},
        {kIntById, kText, [&] { return uci_get_int_option_by_id(kNull, "beta", 0, "k", &value); }},
        {kIntById, kText, [&] { return uci_get_int_option_by_id("store", kNull, 0, "k", &value); }},
        {kIntById, kText,
         [&] { return uci_get_int_option_by_id("store", "beta", -1, "k", &value); }},
        {kIntById, kText,
         [&] { return uci_get_int_option_by_id("store", "beta", 0, kNull, &value); }},
        {kIntById, kText,
         [&] { return uci_get_int_option_by_id("store", "beta", 0, "k", nullptr); }},
    });
    EXPECT_TRUE(buf.untouched());
    EXPECT_EQ(value, kNoValue);
}

TEST_F(UciRejects, ABufferWithoutRoomInTheGetters) {
    Buffer buf(10);
    const auto check_line = [&](const char* getter, const std::string& path) {
        EXPECT_THAT(log_.take(), ElementsAre(Error("uci_get_value", "invalid parameters\n"),
                                             Info(getter, "uci get " + path + " fail\n")));
    };
    EXPECT_EQ(uci_get_str_option_by_name("store", "one", "a", nullptr, 10), -1);
    check_line("uci_get_str_option_by_name", "store.one.a");
    EXPECT_EQ(uci_get_str_option_by_id("store", "beta", 0, "k", nullptr, 10), -1);
    check_line("uci_get_str_option_by_id", "store.@beta[0].k");
    for (const int len : {0, -1, INT_MIN}) {
        EXPECT_EQ(uci_get_str_option_by_name("store", "one", "a", buf.data(), len), -1);
        check_line("uci_get_str_option_by_name", "store.one.a");
        EXPECT_EQ(uci_get_str_option_by_id("store", "beta", 0, "k", buf.data(), len), -1);
        check_line("uci_get_str_option_by_id", "store.@beta[0].k");
    }
    EXPECT_TRUE(buf.untouched());
}

TEST_F(UciRejects, MissingArgumentsInACallersContext) {
    const Context context = new_context();
    Buffer buf(10);
    constexpr const char* kText = "invalid parameters\n";
    check({
        {"set_uci_option", kText, [] { return set_uci_option(nullptr, "store.one.a=2"); }},
        {"set_uci_option", kText, [&] { return set_uci_option(context.get(), nullptr); }},
        {"del_uci_element", kText, [] { return del_uci_element(nullptr, "store.one.a", 0); }},
        {"del_uci_element", kText, [&] { return del_uci_element(context.get(), nullptr, 0); }},
        {"get_uci_option", kText,
         [&] { return get_uci_option(nullptr, "store.one.a", buf.data(), 10); }},
        {"get_uci_option", kText,
         [&] { return get_uci_option(context.get(), nullptr, buf.data(), 10); }},
        {"get_uci_option", kText,
         [&] { return get_uci_option(context.get(), "store.one.a", nullptr, 10); }},
        {"get_uci_option", kText,
         [&] { return get_uci_option(context.get(), "store.one.a", buf.data(), 0); }},
        {"get_uci_option", kText,
         [&] { return get_uci_option(context.get(), "store.one.a", buf.data(), -1); }},
    });
    EXPECT_TRUE(buf.untouched());
}

}  // namespace
