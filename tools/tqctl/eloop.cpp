// eloop.cpp - tqctl eloop: how late the timeouts of event loops come on this device.
#include <tq/eloop.h>
#include <tq/list.h>
#include <tq/thd_eloop.h>

#include <algorithm>

#include "clock.h"
#include "families.h"
#include "number.h"

namespace tqctl {

namespace {

constexpr int64_t kUsualCount = 50;
constexpr int64_t kUsualMilliseconds = 10;

// The two kinds of loop, of which a measurement needs the same.
struct Loop {
    const char* name;
    bool (*start)();
    int (*add_timeout)(unsigned microseconds, eloop_timeout_handler handler, void* data);
    void (*run)();
    void (*destroy)();
};

eloop_state owned_loop;

constexpr Loop kLoops[] = {
    {"eloop",
     [] {
         eloop_init(nullptr);
         return true;
     },
     [](unsigned microseconds, eloop_timeout_handler handler, void* data) {
         return eloop_register_timeout(0, microseconds, handler, data, nullptr);
     },
     eloop_run, eloop_destroy},
    {"thd_eloop", [] { return thd_eloop_init(&owned_loop, nullptr) == 0; },
     [](unsigned microseconds, eloop_timeout_handler handler, void* data) {
         return thd_eloop_register_timeout(&owned_loop, 0, microseconds, handler, data, nullptr);
     },
     [] { (void)thd_eloop_run(&owned_loop); }, [] { thd_eloop_destroy(&owned_loop); }},
};

// What each timeout came later than it was due, in microseconds and in ascending order.
class Measurement {
  public:
    Measurement(const Loop& loop, int64_t count, int64_t interval)
        : loop_(loop), left_(count), interval_(interval) {
        tq_list_init(&lags_);
    }
    ~Measurement() { tq_list_deinit(&lags_); }
    Measurement(const Measurement&) = delete;
    Measurement& operator=(const Measurement&) = delete;

    // False where a timeout was lost for want of memory.
    bool run() {
        if (!loop_.start()) return false;
        wait();
        loop_.run();
        loop_.destroy();
        return left_ == 0;
    }

    // The lag that this part of all, in percent, does not exceed.
    [[nodiscard]] int64_t percentile(size_t percent) const {
        const tq_list_node* node = tq_list_first(&lags_);
        for (size_t before = (size_ - 1) * percent / 100; before > 0; before--)
            node = tq_list_next(&lags_, node);
        return static_cast<int64_t>(node->data);
    }

  private:
    void wait() {
        due_ = microseconds() + interval_;
        loop_.add_timeout(static_cast<unsigned>(interval_), come, this);
    }

    static void come(void* measurement, void*) {
        static_cast<Measurement*>(measurement)->note(microseconds());
    }

    void note(int64_t now) {
        const auto lag = static_cast<uintptr_t>(std::max<int64_t>(now - due_, 0));
        tq_list_node* node = tq_list_first(&lags_);
        while (node && node->data <= lag)
            node = tq_list_next(&lags_, node);
        if (tq_list_ins(&lags_, node, lag) != 0) return;
        size_++;
        if (--left_ > 0) wait();
    }

    const Loop& loop_;
    tq_list lags_{};
    size_t size_ = 0;
    int64_t left_;
    int64_t interval_;
    int64_t due_ = 0;
};

Json describe(const Measurement& measurement) {
    Json object(json_object_new_object());
    json_add(object.get(), "least_us", json_number(measurement.percentile(0)));
    json_add(object.get(), "median_us", json_number(measurement.percentile(50)));
    json_add(object.get(), "most_us", json_number(measurement.percentile(100)));
    return object;
}

ExitCode lag(Context& context, Arguments arguments) {
    const std::optional<int64_t> count =
        arguments.empty() ? kUsualCount : take_number(context, arguments[0], "a number", 1, 10000);
    if (!count) return ExitCode::kUsage;
    const std::optional<int64_t> milliseconds =
        arguments.size() < 2 ? kUsualMilliseconds
                             : take_number(context, arguments[1], "a number", 0, 1000);
    if (!milliseconds) return ExitCode::kUsage;
    const Json figures(json_object_new_object());
    for (const Loop& loop : kLoops) {
        Measurement measurement(loop, *count, *milliseconds * 1000);
        if (!measurement.run()) return context.fail(ExitCode::kInputOutput, "out of memory");
        json_add(figures.get(), loop.name, describe(measurement));
    }
    context.output.members(figures);
    return ExitCode::kDone;
}

constexpr Command kCommands[] = {
    {"lag", "[COUNT [MILLISECONDS]]", 0, 2, "measures how late timeouts come",
     "COUNT timeouts (1 to 10000, else 50), one after another, of MILLISECONDS each\n"
     "(0 to 1000, else 10), in a loop of each kind. Lines LOOP.least_us,\n"
     "LOOP.median_us and LOOP.most_us, in microseconds behind the time that a\n"
     "timeout was due; in JSON an object for each of eloop and thd_eloop. It is what\n"
     "a daemon has to reckon with under the device's present load.",
     "tqctl eloop lag 100 5", lag},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kEloop = {"eloop", "event loops of daemons", "", kCommands};

}  // namespace tqctl
