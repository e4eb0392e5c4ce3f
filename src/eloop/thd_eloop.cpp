#include "tq/thd_eloop.h"

#include <cerrno>
#include <cstdio>

#include "eloop/loop.h"
#include "foundation/lock.h"
#include "foundation/log.h"

pthread_mutex_t g_eloop_mutex;

namespace {

using tq::Lock;

constinit pthread_mutex_t first_use = PTHREAD_MUTEX_INITIALIZER;
constinit bool mutex_is_ready = false;

// Other loops may be using the mutex by the time that one more is initialised.
bool make_mutex_once() {
    const Lock lock(first_use);
    if (!mutex_is_ready) mutex_is_ready = pthread_mutex_init(&g_eloop_mutex, nullptr) == 0;
    return mutex_is_ready;
}

bool limit_to_timeout(tq::Pass& pass, const eloop_state& loop) {
    const Lock lock(g_eloop_mutex);
    return pass.limit_to_timeout(loop);
}

eloop_timeout* take_due(eloop_state& loop) {
    const Lock lock(g_eloop_mutex);
    return tq::take_due(loop);
}

}  // namespace

int thd_eloop_init(eloop_state* loop, void* user_data) {
    if (!loop) return tq::reject(__func__);
    if (!make_mutex_once()) return -1;
    *loop = {};
    loop->user_data = user_data;
    return 0;
}

int thd_eloop_register_read_sock(eloop_state* loop, int sock, eloop_sock_handler handler,
                                 void* eloop_data, void* user_data) {
    if (!loop || !tq::fits_descriptor_set(sock) || !handler) {
        return tq::reject(__func__);
    }
    return tq::add_reader(*loop, {sock, eloop_data, user_data, handler});
}

int thd_eloop_unregister_read_sock(eloop_state* loop, int sock) {
    if (!loop) return tq::reject(__func__);
    return tq::remove_reader(*loop, sock);
}

int thd_eloop_register_timeout(eloop_state* loop, unsigned secs, unsigned usecs,
                               eloop_timeout_handler handler, void* eloop_data, void* user_data) {
    if (!loop || !handler) return tq::reject(__func__);
    eloop_timeout* timeout = tq::new_timeout(secs, usecs, handler, eloop_data, user_data);
    if (!timeout) return -1;
    const Lock lock(g_eloop_mutex);
    tq::insert_timeout(*loop, timeout);
    return 0;
}

int thd_eloop_cancel_timeout(eloop_state* loop, eloop_timeout_handler handler, void* eloop_data,
                             void* user_data) {
    if (!loop) return tq::reject(__func__);
    eloop_timeout* cancelled = nullptr;
    {
        const Lock lock(g_eloop_mutex);
        cancelled = tq::take_matching(*loop, handler, eloop_data, user_data);
    }
    return tq::free_timeouts(cancelled);
}

int thd_eloop_run(eloop_state* loop) {
    if (!loop) return tq::reject(__func__);
    while (!tq::look_at(loop->terminate)) {
        tq::Pass pass;
        if (!limit_to_timeout(pass, *loop) && loop->reader_count <= 0) return 0;
        pass.limit_to_a_second();
        const int ready = pass.wait(*loop);
        if (ready < 0 && errno != EINTR) {
            perror("select");
            return -1;
        }
        // Without the lock: the handler may add and cancel timeouts.
        tq::call_timeout(take_due(*loop));
        if (ready > 0) pass.call_readers(*loop);
    }
    return 0;
}

int thd_eloop_terminate(eloop_state* loop) {
    if (!loop) return tq::reject(__func__);
    tq::set_shared(loop->terminate, 1);
    return 0;
}

int thd_eloop_destroy(eloop_state* loop) {
    if (!loop) return tq::reject(__func__);
    tq::free_loop(*loop);
    return 0;
}

int thd_eloop_terminated(eloop_state* loop) {
    if (!loop) return tq::reject(__func__);
    return tq::look_at(loop->terminate);
}

void* thd_eloop_get_user_data(const eloop_state* loop) {
    if (!loop) {
        tq::reject(__func__);
        return nullptr;
    }
    return loop->user_data;
}
