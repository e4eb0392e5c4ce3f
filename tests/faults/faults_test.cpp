// faults_test.cpp - every exported function with each of its calls failing in turn, and the table
// of that in docs/faults.md.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "faults/sweep.h"
#include "support/device.h"
#include "support/faults.h"

namespace tq_test::sweep {
namespace {

using faults::Way;

constexpr int kDescriptors = 256;

#ifdef TQ_FAULTS_EXACT
constexpr bool kIsWhatShips = true;
#else
constexpr bool kIsWhatShips = false;
#endif

constexpr const char* kTable = TQ_SOURCE_DIR "/docs/faults.md";
const std::string kIntroduction =
    R"(# What happens when a call fails

`./run faults` runs every exported function with its first system call failing, then its second, and so on to its last, and its
allocations likewise; and it writes this page. Each outcome is what the function's header states, nothing is left behind,
neither memory nor a descriptor, and the same call works afterwards on the same state. `tests/faults/` says for each function
what is prepared, what the outcome is when a call fails, and which failures change nothing.

A call is one into the C library or libnl, made by libtq or by what of the firmware's it is built on (`host/`). It fails with
its usual error; a `read` is also interrupted by a signal, and a `write` also writes half. A failure is tolerated where the
function does its work all the same, as when a descriptor cannot be closed. Functions that talk to a service make as many calls
as its answers come in pieces. The figures are those of the release build on x86-64.

)";

// ---- one run ----

std::bitset<kDescriptors> open_descriptors() {
    std::bitset<kDescriptors> open;
    for (int fd = 0; fd < kDescriptors; fd++)
        open[static_cast<size_t>(fd)] = fcntl(fd, F_GETFD) >= 0;
    return open;
}

// What is printed meanwhile goes nowhere.
class Silence {
  public:
    Silence() {
        static const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        static const std::array<int, 2> saved = {dup_of(STDOUT_FILENO), dup_of(STDERR_FILENO)};
        fflush(stdout);
        saved_ = saved;
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        // Whose buffer is made with the first byte.
        static const int first = std::puts("");
        EXPECT_GE(first, 0);
    }
    ~Silence() {
        fflush(stdout);
        clearerr(stdout);
        clearerr(stderr);
        dup2(saved_[0], STDOUT_FILENO);
        dup2(saved_[1], STDERR_FILENO);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

  private:
    static int dup_of(int fd) { return fcntl(fd, F_DUPFD_CLOEXEC, 0); }

    std::array<int, 2> saved_{};
};

// What stays on the heap of what its bodies do; what is done between them is not looked at.
class Ledger {
  public:
    template <typename Body>
    void run(const Body& body) {
        const long before = faults::live_blocks();
        body();
        balance_ += faults::live_blocks() - before;
    }
    long balance() const { return balance_; }

  private:
    long balance_ = 0;
};

struct Attempt {
    std::string outcome;
    std::string again;  // of a second call, where the first one failed
    long kept = 0;
    std::bitset<kDescriptors> left_open;
    bool fired = false;
};

intptr_t call_with(const Row& row, unsigned nth, Way way) {
    const Silence silence;
    const faults::Sweep sweep(nth, way);
    return row.call();
}

Attempt attempt(const Row& row, unsigned nth = 0, Way way = Way::kFail, bool asks_again = false) {
    Attempt attempt;
    Ledger ledger;
    intptr_t result = 0;
    const auto undo = [&] {
        if (row.undo) row.undo(result);
    };
    // The log's socket stays open from here on.
    openlog("faults_test", LOG_NDELAY, LOG_USER);
    const std::bitset<kDescriptors> before = open_descriptors();
    ledger.run([&] {
        if (row.prepare) row.prepare();
        result = call_with(row, nth, way);
    });
    attempt.fired = faults::Sweep::fired();
    attempt.outcome = row.outcome(result);
    if (asks_again && attempt.outcome != row.gives) {
        ledger.run([&] {
            const Silence silence;
            result = row.call();
        });
        attempt.again = row.outcome(result);
    }
    ledger.run(undo);
    attempt.kept = ledger.balance();
    attempt.left_open = open_descriptors() & ~before;
    return attempt;
}

// ---- what is stated ----

// The nth of its name, and how it fails.
struct Fault {
    std::string name;
    unsigned nth;
    Way way;
};

const char* suffix(Way way) {
    switch (way) {
        case Way::kInterrupt:
            return ":interrupted";
        case Way::kCut:
            return ":cut";
        default:
            return "";
    }
}

std::string text_of(const Fault& fault) {
    return fault.name + "#" + std::to_string(fault.nth) + suffix(fault.way);
}

const Stated* find_stated(const Row& row, const std::string& call) {
    const auto found = std::ranges::find(row.but, call, &Stated::call);
    return found == row.but.end() ? nullptr : &*found;
}

bool only_gives_back(const std::string& name) {
    static const std::set<std::string> kNames = {"close", "fclose", "pclose", "closedir"};
    return kNames.contains(name);
}

Stated stated(const Row& row, const Fault& fault) {
    const std::string numbered = fault.name + "#" + std::to_string(fault.nth);
    std::vector<std::string> keys = {numbered + suffix(fault.way), fault.name + suffix(fault.way)};
    if (fault.way == Way::kCut) keys.insert(keys.end(), {numbered, fault.name});
    for (const std::string& key : keys) {
        if (const Stated* found = find_stated(row, key)) return *found;
    }
    const bool changes_nothing = fault.way == Way::kInterrupt || only_gives_back(fault.name);
    return {"", changes_nothing ? row.gives : row.fails};
}

bool is_among(const std::string& text, const std::string& alternatives) {
    std::istringstream stream(alternatives);
    for (std::string one; std::getline(stream, one, '|');) {
        if (one == text) return true;
    }
    return text == alternatives;
}

// ---- the table ----

// Of a row: its calls, the failures that were tried, and how many of these the outcome showed.
struct Count {
    unsigned system_calls = 0;
    unsigned allocations = 0;
    unsigned faults = 0;
    unsigned failed = 0;

    Count& operator+=(const Count& other) {
        system_calls += other.system_calls;
        allocations += other.allocations;
        faults += other.faults;
        failed += other.failed;
        return *this;
    }
};

std::string key_of(const Row& row) {
    return row.how.empty() ? row.function : row.function + ", " + row.how;
}

std::map<std::string, Count>& counted() {
    static std::map<std::string, Count> counts;
    return counts;
}

const std::vector<Row>& rows() {
    static const std::vector<Row> all = [] {
        std::vector<Row> rows;
        for (auto* part : {foundation_rows, uci_rows, wifi_rows, eloop_rows, netlink_rows, bus_rows,
                           records_rows, flash_rows, sysinfo_rows, ini_rows})
            std::ranges::move(part(), std::back_inserter(rows));
        return rows;
    }();
    return all;
}

std::vector<const Row*> rows_of(const std::string& function) {
    std::vector<const Row*> found;
    for (const Row& row : rows()) {
        if (row.function == function) found.push_back(&row);
    }
    return found;
}

bool is_function(const std::string& name) {
    ElfW(Sym)* symbol = nullptr;
    Dl_info info{};
    void* address = dlsym(RTLD_DEFAULT, name.c_str());
    if (!address || !dladdr1(address, &info, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT))
        throw std::runtime_error("the library has no " + name);
    return ELF64_ST_TYPE(symbol->st_info) == STT_FUNC;
}

struct Family {
    std::string name;
    std::vector<std::string> functions;
};

// What the version script lists, but for the objects.
std::vector<Family> exported_families() {
    std::vector<Family> families;
    std::istringstream script(read_file(TQ_SOURCE_DIR "/src/libtq.map"));
    for (std::string line; std::getline(script, line) && line != "local:";) {
        line.erase(0, line.find_first_not_of(' '));
        if (line.starts_with("# ") && !line.ends_with('.')) {
            families.push_back({line.substr(2), {}});
        } else if (line.ends_with(';') && !families.empty() && line != "*;") {
            line.pop_back();
            if (is_function(line)) families.back().functions.push_back(line);
        }
    }
    return families;
}

std::string cells(const Count& count) {
    std::ostringstream text;
    text << " | " << count.system_calls << " | " << count.allocations << " | " << count.faults
         << " | " << count.failed << " | " << count.faults - count.failed << " |\n";
    return text.str();
}

constexpr const char* kHeadings =
    " | system calls | allocations | failures tried | of them failed | tolerated |\n"
    "|---|--:|--:|--:|--:|--:|\n";

// The rows of a family, and behind them the functions that make no call.
std::string family_section(const Family& family, Count* total) {
    std::string table;
    std::string quiet;
    for (const std::string& function : family.functions) {
        for (const Row* row : rows_of(function)) {
            const Count& count = counted()[key_of(*row)];
            *total += count;
            if (count.faults > 0) {
                const std::string how = row->how.empty() ? "" : ", " + row->how;
                table += "| `" + function + "`" + how + cells(count);
            } else {
                quiet += (quiet.empty() ? "`" : ", `") + function + "`";
            }
        }
    }
    std::string text = "## " + family.name + "\n\n";
    if (!table.empty()) text += std::string("| function") + kHeadings + table + "\n";
    if (!quiet.empty()) text += "Without a call that could fail: " + quiet + ".\n\n";
    return text;
}

std::string document() {
    std::string totals = std::string("| family") + kHeadings;
    std::string sections;
    Count sum;
    for (const Family& family : exported_families()) {
        Count total;
        sections += family_section(family, &total);
        totals += "| [" + family.name + "](#" + family.name + ")" + cells(total);
        sum += total;
    }
    totals += "| all" + cells(sum) + "\n";
    const std::string text = kIntroduction + totals + sections;
    return text.substr(0, text.size() - 1);
}

// ---- the tests ----

// Which of the calls fail: where a machine is emulated, the first few of each name stand for all.
bool is_tried([[maybe_unused]] unsigned nth_of_name) {
#ifdef TQ_EMULATED
    return nth_of_name <= 2;
#else
    return true;
#endif
}

class Faults : public DeviceTest {
  public:
    explicit Faults(const Row& row) : row_(row) {}

    void TestBody() override {
        TQ_NEEDS_FAILING_ALLOCATOR();
#ifdef TQ_SYSTEM_DEPENDENCIES
        GTEST_SKIP() << "what the real libuci and libubus call is their own affair";
#endif
        attempt(row_);  // what is made once in a process, is made
        learn();
        for (unsigned i = 0; i < calls_.size(); i++)
            fail(i);
        EXPECT_EQ(attempt(row_).outcome, row_.gives) << "when all failures are over";
        counted()[key_of(row_)] = count_;
    }

  private:
    void learn() {
        const Attempt good = attempt(row_);
        for (const std::string_view name : faults::Sweep::calls())
            calls_.emplace_back(name);
        EXPECT_EQ(good.outcome, row_.gives);
        expect_nothing_left(good);
    }

    void fail(unsigned i) {
        const std::string& name = calls_[i];
        if (std::ranges::find(row_.spares, name) != row_.spares.end()) return;
        ++(faults::allocates(name) ? count_.allocations : count_.system_calls);
        const auto nth = static_cast<unsigned>(
            std::count(calls_.begin(), calls_.begin() + static_cast<std::ptrdiff_t>(i) + 1, name));
        if (!is_tried(nth)) return;
        for (const Way way : faults::ways_of(name))
            fail(i, {name, nth, way});
    }

    void fail(unsigned i, const Fault& fault) {
        SCOPED_TRACE(text_of(fault));
        const Stated expected = stated(row_, fault);
        const std::string& again = expected.again.empty() ? row_.again : expected.again;
        const Attempt failed = attempt(row_, i + 1, fault.way, again != kSpent);
        if (!failed.fired && row_.varies) return;
        EXPECT_TRUE(failed.fired) << "the calls were others this time";
        EXPECT_PRED2(is_among, failed.outcome, expected.gives);
        if (!failed.again.empty()) {
            EXPECT_PRED2(is_among, failed.again, again.empty() ? row_.gives : again) << "again";
        }
        expect_nothing_left(failed);
        ++count_.faults;
        if (failed.outcome != row_.gives) ++count_.failed;
    }

    void expect_nothing_left(const Attempt& done) const {
        EXPECT_EQ(done.left_open.to_string().find('1'), std::string::npos)
            << "descriptor " << done.left_open._Find_first();
        EXPECT_GE(done.kept, 0) << "heap blocks";
        EXPECT_LE(done.kept, row_.keeps) << "heap blocks";
    }

    const Row& row_;
    std::vector<std::string> calls_;
    Count count_;
};

class FaultsTable : public testing::Test {
  public:
    using Check = void (*)();
    explicit FaultsTable(Check check) : check_(check) {}
    void TestBody() override { check_(); }

  private:
    Check check_;
};

void expect_every_function() {
    std::set<std::string> exported;
    for (const Family& family : exported_families())
        exported.insert(family.functions.begin(), family.functions.end());
    std::set<std::string> swept;
    std::set<std::string> keys;
    for (const Row& row : rows()) {
        swept.insert(row.function);
        EXPECT_TRUE(keys.insert(key_of(row)).second) << "twice: " << key_of(row);
    }
    EXPECT_EQ(swept, exported);
}

// The names of the symbols that an object needs of others.
std::vector<std::string> imports_of(const std::string& path) {
    const std::string image = read_file(path);
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(image.data());
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(image.data() + header->e_shoff);
    std::vector<std::string> names;
    for (int i = 0; i < header->e_shnum; i++) {
        if (sections[i].sh_type != SHT_DYNSYM) continue;
        const char* texts = image.data() + sections[sections[i].sh_link].sh_offset;
        const auto* symbols =
            reinterpret_cast<const ElfW(Sym)*>(image.data() + sections[i].sh_offset);
        for (size_t n = 0; n < sections[i].sh_size / sizeof(*symbols); n++) {
            if (symbols[n].st_shndx == SHN_UNDEF) names.emplace_back(texts + symbols[n].st_name);
        }
    }
    return names;
}

// Where a symbol comes from that is not forwarded.
std::string origin_of(const std::string& name) {
    Dl_info info{};
    void* address = dlsym(RTLD_DEFAULT, name.c_str());
    return address && dladdr(address, &info) ? info.dli_fname : "";
}

// Of the C library, what makes no system call, or none that can fail when it is called as it is.
const std::set<std::string> kCannotFail = {"__assert_fail",
                                           "__cxa_finalize",
                                           "__errno_location",
                                           "__fpurge",
                                           "__fsetlocking",
                                           "closelog",
                                           "dirfd",
                                           "endmntent",
                                           "eventfd_read",
                                           "eventfd_write",
                                           "feof",
                                           "ferror",
                                           "fileno",
                                           "flockfile",
                                           "free",
                                           "funlockfile",
                                           "getpid",
                                           "gettimeofday",
                                           "inet_ntop",
                                           "inet_pton",
                                           "localtime_r",
                                           "memchr",
                                           "memcmp",
                                           "memcpy",
                                           "memmove",
                                           "memset",
                                           "openlog",
                                           "perror",
                                           "pthread_once",
                                           "rand",
                                           "setlogmask",
                                           "setvbuf",
                                           "sigfillset",
                                           "snprintf",
                                           "srand",
                                           "stderr",
                                           "strcasecmp",
                                           "strchr",
                                           "strcmp",
                                           "strcspn",
                                           "strerror",
                                           "strlen",
                                           "strncmp",
                                           "strncpy",
                                           "strnlen",
                                           "strpbrk",
                                           "strrchr",
                                           "strsep",
                                           "strspn",
                                           "strstr",
                                           "strtod",
                                           "strtol",
                                           "strtoll",
                                           "strtoul",
                                           "syslog",
                                           "time",
                                           "vsnprintf",
                                           "strerrordesc_np",
                                           "epoll_wait",
                                           "pthread_sigmask",
                                           "pthread_mutex_destroy",
                                           "pthread_mutex_lock",
                                           "pthread_mutex_unlock"};

// A call that the library begins to make has to be forwarded, or it is never made to fail.
void expect_calls_forwarded() {
    if (!kIsWhatShips) GTEST_SKIP() << "only what ships calls nothing else";
    for (const char* function :
         {"tq_gettime", "uci_load", "ubus_connect", "blob_buf_init", "tq_get_oem_ap_type_common"}) {
        for (const std::string& name : imports_of(origin_of(function))) {
            const std::string origin = origin_of(name);
            if (origin.find("/libc.so") == std::string::npos || kCannotFail.contains(name))
                continue;
            ADD_FAILURE() << name << " of " << function << "'s object comes from " << origin;
        }
    }
}

// The page has to be made anew with `./run faults` when it is not what is counted. Counts that
// depend on when another process answers are not compared; nor are any but in what ships.
std::string without_counts(const std::string& page, bool all) {
    std::istringstream stream(page);
    std::string text;
    for (std::string line; std::getline(stream, line);) {
        const bool varies = std::ranges::any_of(rows(), [&](const Row& row) {
            const std::string how = row.how.empty() ? "" : ", " + row.how;
            return row.varies && line.starts_with("| `" + row.function + "`" + how + " |");
        });
        const bool is_total = line.starts_with("| [") || line.starts_with("| all");
        if (all || varies || is_total) line.resize(std::min(line.size(), line.find(" |", 1)));
        text += line + "\n";
    }
    return text;
}

void make_page() {
    if (counted().size() != rows().size()) GTEST_SKIP() << "not all of the rows were run";
    write_file(TQ_FAULTS_PAGE, document());
}

void expect_current() {
    if (counted().size() != rows().size()) GTEST_SKIP() << "not all of the rows were run";
    const std::string page = document();
    EXPECT_EQ(without_counts(read_file(kTable), !kIsWhatShips), without_counts(page, !kIsWhatShips))
        << "docs/faults.md is out of date: ./run faults";
}

std::string test_name(const Row& row) {
    std::string name = key_of(row);
    std::erase(name, ',');
    std::ranges::replace(name, ' ', '_');
    return name;
}

void register_check(const char* name, FaultsTable::Check check) {
    testing::RegisterTest("FaultsTable", name, nullptr, nullptr, __FILE__, __LINE__,
                          [check]() -> FaultsTable* { return new FaultsTable(check); });
}

// In this order: the page is compared when all is counted.
bool register_tests() {
    for (const Row& row : rows()) {
        testing::RegisterTest("Faults", test_name(row).c_str(), nullptr, nullptr, __FILE__,
                              __LINE__, [&row]() -> Faults* { return new Faults(row); });
    }
    register_check("HasEveryExportedFunction", expect_every_function);
    register_check("KnowsEveryCallOfTheLibrary", expect_calls_forwarded);
    register_check("IsMade", make_page);
    register_check("IsCurrent", expect_current);
    return true;
}

[[maybe_unused]] const bool registered = register_tests();

}  // namespace

std::string number(intptr_t result) {
    return std::to_string(result);
}

std::string with_text(intptr_t result, const char* text) {
    return number(result) + " " + text;
}

std::string with_number(intptr_t result, long long value) {
    return number(result) + " " + std::to_string(value);
}

Row pure(std::string function, std::function<intptr_t()> call, std::string gives) {
    return {.function = std::move(function), .call = std::move(call), .gives = std::move(gives)};
}

std::vector<Stated> where_libuci_may_do_without(const Row& row) {
    std::vector<Stated> stated;
    for (const char* call : {"stat", "fstat", "access"})
        stated.push_back({call, row.gives + "|" + row.fails});
    return stated;
}

int in_child(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace tq_test::sweep
