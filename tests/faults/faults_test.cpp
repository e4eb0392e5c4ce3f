// faults_test.cpp - every exported function with each of its calls failing in turn, and the page
// about it, docs/faults.md.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

#include "faults/attempt.h"
#include "faults/page.h"
#include "faults/sweep.h"
#include "support/device.h"
#include "support/faults.h"

namespace tq_test::sweep {
namespace {

using faults::Way;

#ifdef TQ_FAULTS_EXACT
constexpr bool kIsWhatShips = true;
#else
constexpr bool kIsWhatShips = false;
#endif
#ifdef TQ_SYSTEM_DEPENDENCIES
constexpr bool kHasRealLibraries = true;
#else
constexpr bool kHasRealLibraries = false;
#endif

constexpr const char* kPage = TQ_SOURCE_DIR "/docs/faults.md";

Counts& counted() {
    static Counts counts;
    return counts;
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
        if (kHasRealLibraries)
            GTEST_SKIP() << "what the real libuci and libubus call is their own affair";
        const std::string lacks = row_.lacks ? row_.lacks() : "";
        if (!lacks.empty()) GTEST_SKIP() << lacks;
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
        EXPECT_EQ(done.left_open, -1) << "a descriptor";
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
                                           "__isoc99_sscanf",
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
                                           "tzset",
                                           "vsnprintf",
                                           "vsyslog",
                                           "strerrordesc_np",
                                           "epoll_wait",
                                           "pthread_sigmask",
                                           "pthread_mutex_destroy",
                                           "pthread_mutex_lock",
                                           "pthread_mutex_unlock"};

// One function of each object that is ours.
std::vector<const char*> our_objects() {
    if (kHasRealLibraries) return {"tq_gettime"};
    return {"tq_gettime", "uci_load", "ubus_connect", "blob_buf_init", "tq_get_oem_ap_type_common"};
}

// A call that the library begins to make has to be forwarded, or it is never made to fail.
void expect_calls_forwarded() {
    if (!kIsWhatShips) GTEST_SKIP() << "only what ships calls nothing else";
    for (const char* function : our_objects()) {
        for (const std::string& name : imports_of(origin_of(function))) {
            const std::string origin = origin_of(name);
            if (origin.find("/libc.so") == std::string::npos || kCannotFail.contains(name))
                continue;
            ADD_FAILURE() << name << " of " << function << "'s object comes from " << origin;
        }
    }
}

void make_page() {
    if (counted().size() != rows().size()) GTEST_SKIP() << "not all of the rows were run";
    write_file(TQ_FAULTS_PAGE, page_of(counted()));
}

// It has to be made anew where it is not what is counted.
void expect_current() {
    if (counted().size() != rows().size()) GTEST_SKIP() << "not all of the rows were run";
    const Leave leave = kIsWhatShips ? Leave::kCertain : Leave::kNone;
    EXPECT_EQ(without_counts(read_file(kPage), leave), without_counts(page_of(counted()), leave))
        << "docs/faults.md is out of date: ./run faults";
}

std::string test_name(const Row& row) {
    std::string name = key_of(row);
    std::erase(name, ',');
    std::ranges::replace_if(
        name, [](char c) { return c == ' ' || c == '-'; }, '_');
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
}  // namespace tq_test::sweep
