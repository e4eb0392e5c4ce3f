// named_process.h - a running process of a given name, for what looks for processes.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace tq_test {

// What a process and its test both see.
struct Shared {
    std::atomic<int> signals;
    std::atomic<int> mask;
};

inline Shared* shared() {
    static Shared* const page = static_cast<Shared*>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    return page;
}

inline void count_signal(int) {
    shared()->signals++;
}

// Waits until the condition holds, ten seconds at most.
inline bool becomes(const std::function<bool()>& condition) {
    for (int i = 0; i < 10000; i++) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

// A child of that name (cut by the kernel at 15 bytes). It runs `prepare`, and then `idle` every
// millisecond until the scope ends. The constructor returns when it is prepared.
class NamedProcess {
  public:
    explicit NamedProcess(
        const std::string& name, const std::function<void()>& prepare = [] {},
        const std::function<void()>& idle = [] {}) {
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("pipe");
        pid_ = fork();
        if (pid_ < 0) throw std::runtime_error("fork");
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name.c_str());
            prepare();
            (void)!write(ends[1], "", 1);
            for (;;) {
                idle();
                usleep(1000);
            }
        }
        close(ends[1]);
        char byte = 0;
        const ssize_t got = read(ends[0], &byte, 1);
        close(ends[0]);
        if (got != 1) throw std::runtime_error("the process " + name + " died");
    }
    ~NamedProcess() { end(); }
    NamedProcess(const NamedProcess&) = delete;
    NamedProcess& operator=(const NamedProcess&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

    [[nodiscard]] bool alive() const {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
        return info.si_pid == 0;
    }

    // Ended, and not yet waited for.
    void make_zombie() const {
        kill(pid_, SIGKILL);
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
    }

    void end() {
        if (pid_ == 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }

  private:
    pid_t pid_ = 0;
};

}  // namespace tq_test
