#include "tq/eloop.h"

#include <cerrno>
#include <cstdio>

#include "eloop/loop.h"
#include "foundation/log.h"

namespace {

constinit eloop_state state = {};

// Set while the array of signals is freed or forgotten memory: a signal may still come.
constinit std::atomic<bool> signals_are_gone = false;

// Keeps all signals from this thread.
class HoldSignals {
  public:
    HoldSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~HoldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    HoldSignals(const HoldSignals&) = delete;
    HoldSignals& operator=(const HoldSignals&) = delete;

    [[nodiscard]] const sigset_t* before() const { return &before_; }

  private:
    sigset_t before_;
};

// Of deliveries that interrupt one another, one may go uncounted: whether there is any is what
// counts.
void count_one_more(int& deliveries) {
    tq::set_shared(deliveries, tq::look_at(deliveries) + 1);
}

// Runs in signal context.
void count_delivery(int sig) {
    if (signals_are_gone.load(std::memory_order_relaxed)) return;
    int i = 0;
    while (i < state.signal_count && state.signals[i].sig != sig)
        i++;
    if (i < state.signal_count) count_one_more(state.signals[i].signaled);
    count_one_more(state.signaled);
}

bool has_work() {
    return state.reader_count > 0 || state.cmm_agent_connected != 0;
}

bool is_asked_for() {
    return tq::look_at(state.signaled) != 0 || tq::look_at(state.terminate) != 0;
}

// A signal that came between the last look at the counters and the wait would not end the wait, so
// the wait itself lets signals in.
int wait_for_signals_too(tq::Pass& pass) {
    const HoldSignals hold;
    if (is_asked_for()) pass.do_not_wait();
    return pass.wait(state, hold.before());
}

int wait(tq::Pass& pass) {
    return state.signal_count > 0 && pass.waits() ? wait_for_signals_too(pass) : pass.wait(state);
}

void call_signal_handlers() {
    if (tq::look_at(state.signaled) == 0) return;
    tq::set_shared(state.signaled, 0);
    // Only now the entries: a delivery that comes behind the look at one is for the next pass.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    // The array is read anew after each handler, which may have changed it.
    for (int i = 0; i < state.signal_count; i++) {
        eloop_signal& signal = state.signals[i];
        if (tq::look_at(signal.signaled) == 0) continue;
        tq::set_shared(signal.signaled, 0);
        signal.handler(signal.sig, state.user_data, signal.user_data);
    }
}

}  // namespace

void eloop_init(void* user_data) {
    signals_are_gone.store(true, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    state = {};
    state.user_data = user_data;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    signals_are_gone.store(false, std::memory_order_relaxed);
}

int eloop_register_read_sock(int sock, eloop_sock_handler handler, void* eloop_data,
                             void* user_data) {
    if (!tq::fits_descriptor_set(sock) || !handler) return tq::reject(__func__);
    return tq::add_reader(state, {sock, eloop_data, user_data, handler});
}

int eloop_unregister_read_sock(int sock) {
    return tq::remove_reader(state, sock);
}

int eloop_register_timeout(unsigned secs, unsigned usecs, eloop_timeout_handler handler,
                           void* eloop_data, void* user_data) {
    if (!handler) return tq::reject(__func__);
    eloop_timeout* timeout = tq::new_timeout(secs, usecs, handler, eloop_data, user_data);
    if (!timeout) return -1;
    tq::insert_timeout(state, timeout);
    return 0;
}

int eloop_cancel_timeout(eloop_timeout_handler handler, void* eloop_data, void* user_data) {
    return tq::free_timeouts(tq::take_matching(state, handler, eloop_data, user_data));
}

int eloop_register_signal(int sig, eloop_signal_handler handler, void* user_data) {
    if (!handler) return tq::reject(__func__);
    const HoldSignals hold;
    eloop_signal* signals = tq::with_one_more(state.signals, state.signal_count);
    if (!signals) return -1;
    state.signals = signals;
    if (signal(sig, count_delivery) == SIG_ERR) return -1;
    signals[state.signal_count++] = {sig, user_data, handler, 0};
    return 0;
}

void eloop_run() {
    while (!tq::look_at(state.terminate)) {
        tq::Pass pass;
        if (!pass.limit_to_timeout(state) && !has_work()) return;
        const int ready = wait(pass);
        if (ready < 0 && errno != EINTR) return perror("select");
        call_signal_handlers();
        tq::call_timeout(tq::take_due(state));
        if (ready > 0) pass.call_readers(state);
    }
}

void eloop_terminate() {
    tq::set_shared(state.terminate, 1);
}

void eloop_destroy() {
    signals_are_gone.store(true, std::memory_order_relaxed);
    tq::free_loop(state);
}

int eloop_terminated() {
    return tq::look_at(state.terminate);
}

void* eloop_get_user_data() {
    return state.user_data;
}

void eloop_connect_cmm_agent(int connected) {
    state.cmm_agent_connected = connected;
}
