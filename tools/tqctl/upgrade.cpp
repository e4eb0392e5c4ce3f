// upgrade.cpp - tqctl upgrade: the lock that keeps two firmware upgrades apart.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <tq/status_file.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "families.h"
#include "file.h"

namespace tqctl {

namespace {

constexpr char kLockName[] = "@upgrade-img";
// What a holder that "lock" left behind calls itself, so that "unlock" ends no other.
constexpr char kHolderName[] = "tqctl-upgrade";

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// The inode of the socket that has the lock's name; 0 where nothing has.
unsigned long lock_inode() {
    const File sockets(fopen("/proc/net/unix", "re"));
    if (!sockets) return 0;
    char line[256];
    while (fgets(line, sizeof(line), sockets.get())) {
        unsigned long inode = 0;
        char name[160] = "";
        // The zeros behind the name are shown as more of "@".
        if (sscanf(line, "%*s %*s %*s %*s %*s %*s %lu %159s", &inode, name) != 2) continue;
        const size_t length = sizeof(kLockName) - 1;
        if (strncmp(name, kLockName, length) == 0 &&
            name[length + strspn(&name[length], "@")] == '\0')
            return inode;
    }
    return 0;
}

bool is_socket(int descriptors, const char* name, unsigned long inode) {
    char target[64] = "";
    if (readlinkat(descriptors, name, target, sizeof(target) - 1) < 0) return false;
    char wanted[64];
    snprintf(wanted, sizeof(wanted), "socket:[%lu]", inode);
    return strcmp(target, wanted) == 0;
}

bool holds(const char* process, unsigned long inode) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%.16s/fd", process);
    const Directory descriptors(opendir(path));
    if (!descriptors) return false;
    while (const dirent* entry = readdir(descriptors.get())) {
        if (is_socket(dirfd(descriptors.get()), entry->d_name, inode)) return true;
    }
    return false;
}

struct Holder {
    pid_t pid = 0;
    char name[32] = "";
};

void read_name(Holder& holder) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/%d/comm", holder.pid);
    const File comm(fopen(path, "re"));
    if (!comm || !fgets(holder.name, sizeof(holder.name), comm.get())) return;
    holder.name[strcspn(holder.name, "\n")] = '\0';
}

// Who holds the lock; no process where that is not to be seen.
Holder find_holder() {
    Holder holder;
    const unsigned long inode = lock_inode();
    const Directory processes(opendir("/proc"));
    if (inode == 0 || !processes) return holder;
    while (const dirent* entry = readdir(processes.get())) {
        if (!isdigit(static_cast<unsigned char>(*entry->d_name)) || !holds(entry->d_name, inode))
            continue;
        holder.pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
        read_name(holder);
        return holder;
    }
    return holder;
}

ExitCode refuse_held(const Context& context) {
    const Holder holder = find_holder();
    if (holder.pid == 0) return context.fail(ExitCode::kBusy, "an upgrade holds the lock");
    return context.fail(ExitCode::kBusy, "process %d (%s) holds the lock", holder.pid, holder.name);
}

// In the child: keeps the lock, and nothing else of its parent's, until it is ended.
[[noreturn]] void keep_lock() {
    setsid();
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = STDIN_FILENO; null >= 0 && fd <= STDERR_FILENO; fd++)
        dup2(null, fd);
    if (chdir("/") != 0) _exit(1);
    for (;;)
        pause();
}

ExitCode lock(Context& context, Arguments) {
    const int handle = tq_upgrade_mutex_begin();
    if (handle < 0) return refuse_held(context);
    // Before the fork: whoever sees the holder sees its name.
    prctl(PR_SET_NAME, kHolderName);
    const pid_t holder = fork();
    if (holder == 0) keep_lock();
    tq_upgrade_mutex_end(handle);
    if (holder < 0) return context.fail(ExitCode::kInputOutput, "fork: %s", strerror(errno));
    context.output.value("pid", holder);
    return ExitCode::kDone;
}

// The name is free once the kernel has taken the holder's descriptors.
bool becomes_free() {
    for (int tries = 0; tries < 200; tries++) {
        if (!tq_is_upgrade_mutex_begin()) return true;
        usleep(10'000);
    }
    return false;
}

ExitCode unlock(Context& context, Arguments) {
    if (!tq_is_upgrade_mutex_begin())
        return context.fail(ExitCode::kRefused, "the lock is not held");
    const Holder holder = find_holder();
    if (holder.pid == 0 || strcmp(holder.name, kHolderName) != 0) return refuse_held(context);
    if (kill(holder.pid, SIGTERM) != 0)
        return context.fail(exit_code_of(errno), "process %d: %s", holder.pid, strerror(errno));
    if (!becomes_free()) return refuse_held(context);
    return ExitCode::kDone;
}

ExitCode status(Context& context, Arguments) {
    if (!tq_is_upgrade_mutex_begin()) {
        context.output.member("lock", "free");
        return ExitCode::kDone;
    }
    const Holder holder = find_holder();
    context.output.member("lock", "held");
    if (holder.pid == 0) return ExitCode::kDone;
    context.output.member("pid", holder.pid);
    context.output.member("name", holder.name);
    return ExitCode::kDone;
}

// As a shell tells it.
int exit_status(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Whether the child's end was seen.
bool wait_for(pid_t child, int* status) {
    pid_t ended = 0;
    do {
        ended = waitpid(child, status, 0);
    } while (ended < 0 && errno == EINTR);
    return ended == child;
}

// What a terminal sends is for the command: the lock is kept until that has ended.
class IgnoredInterrupts {
  public:
    void restore() const {
        signal(SIGINT, interrupt_);
        signal(SIGQUIT, quit_);
    }

  private:
    sighandler_t interrupt_ = signal(SIGINT, SIG_IGN);
    sighandler_t quit_ = signal(SIGQUIT, SIG_IGN);
};

[[noreturn]] void execute(const Context& context, Arguments arguments) {
    execvp(arguments[0], arguments.data());
    const int error = errno;
    context.fail(ExitCode::kRefused, "%s: %s", arguments[0], strerror(error));
    _exit(error == ENOENT ? 127 : 126);
}

ExitCode run(Context& context, Arguments arguments) {
    if (strcmp(arguments[0], "--") == 0) arguments = arguments.subspan(1);
    if (arguments.empty()) return context.misuse("a command is needed");
    const int handle = tq_upgrade_mutex_begin();
    if (handle < 0) return refuse_held(context);
    const IgnoredInterrupts ignored;
    const pid_t child = fork();
    if (child == 0) {
        ignored.restore();
        execute(context, arguments);
    }
    int status = 0;
    const bool waited = child > 0 && wait_for(child, &status);
    tq_upgrade_mutex_end(handle);
    if (!waited) return context.fail(ExitCode::kInputOutput, "fork: %s", strerror(errno));
    // A document that nobody asked for would follow what the command itself printed.
    exit(exit_status(status));
}

constexpr Command kCommands[] = {
    {"lock", "", 0, 0, "takes the lock and keeps it",
     "A process in the background keeps it; its number is printed.", "tqctl upgrade lock", lock},
    {"unlock", "", 0, 0, "gives back what lock took",
     "Ends the process that lock left behind. An upgrade that holds the lock by\n"
     "itself is named and left alone, with exit code 3.",
     "tqctl upgrade unlock", unlock},
    {"status", "", 0, 0, "says whether an upgrade holds the lock",
     "lock=free or lock=held, and the holder's process number and name where they\n"
     "can be seen. Exit code 0 either way.",
     "tqctl upgrade status", status},
    {"run", "[--] COMMAND...", 1, kAnyNumber, "runs a command while holding the lock",
     "The exit code is the command's (128+N when signal N ended it, 126 or 127 when\n"
     "it could not be run), or 3 when the lock is held: then nothing runs.",
     "tqctl upgrade run -- sysupgrade /tmp/firmware.img", run},
};
static_assert(is_complete(kCommands));

}  // namespace

constinit const Family kUpgrade = {
    "upgrade", "the lock of firmware upgrades",
    "It keeps two upgrades apart. The lock is free as soon as its holder ends,\n"
    "however that comes.",
    kCommands};

}  // namespace tqctl
