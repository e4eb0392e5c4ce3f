#include "faults/attempt.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <bitset>
#include <cstdio>

namespace tq_test::sweep {
namespace {

using faults::Way;

constexpr int kDescriptors = 256;

std::bitset<kDescriptors> open_descriptors() {
    std::bitset<kDescriptors> open;
    for (int fd = 0; fd < kDescriptors; fd++)
        open[static_cast<size_t>(fd)] = fcntl(fd, F_GETFD) >= 0;
    return open;
}

int first_of(const std::bitset<kDescriptors>& descriptors) {
    return descriptors.any() ? static_cast<int>(descriptors._Find_first()) : -1;
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

intptr_t call_with(const Row& row, unsigned nth, Way way) {
    const Silence silence;
    const faults::Sweep sweep(nth, way);
    return row.call();
}

}  // namespace

Attempt attempt(const Row& row, unsigned nth, Way way, bool asks_again) {
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
    attempt.left_open = first_of(open_descriptors() & ~before);
    return attempt;
}

}  // namespace tq_test::sweep
