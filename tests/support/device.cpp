#include "support/device.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

namespace tq_test {
namespace {

constexpr uid_t kNobody = 65534;

std::string make_scratch_file(std::string_view content) {
    static int number = 0;
    std::string path =
        "/run/tqdevice/bind." + std::to_string(getpid()) + "." + std::to_string(number++);
    write_file(path, content);
    return path;
}

dev_t device_of(const fs::path& path) {
    struct stat status {};
    must(lstat(path.c_str(), &status) == 0, path);
    return status.st_dev;
}

// Never enters another mount: with a checkout below /tmp the build tree is mounted there.
void clear_directory(const fs::path& directory) {
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (entry.is_directory() && !entry.is_symlink()) {
            if (device_of(entry.path()) != device_of(directory)) continue;
            clear_directory(entry.path());
        }
        std::error_code still_in_use;
        fs::remove(entry.path(), still_in_use);
    }
}

int memory_file(const char* name) {
    const int fd = memfd_create(name, MFD_CLOEXEC);
    must(fd >= 0, "memfd_create");
    return fd;
}

std::string take_content(int fd) {
    std::string content;
    std::array<char, 4096> buffer{};
    must(lseek(fd, 0, SEEK_SET) == 0, "lseek");
    for (ssize_t size = 0; (size = read(fd, buffer.data(), buffer.size())) > 0;)
        content.append(buffer.data(), static_cast<std::size_t>(size));
    close(fd);
    return content;
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        must(errno == EINTR, "waitpid");
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

const std::string& made(const std::string& path) {
    if (!exists(path)) write_file(path, "");
    return path;
}

// Links from `into` what it lacks of `from`.
void compose(const fs::path& from, const fs::path& into) {
    for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
        const fs::path target = into / entry.path().filename();
        if (!fs::exists(target)) {
            fs::create_symlink(entry.path(), target);
        } else if (fs::is_directory(target) && entry.is_directory()) {
            compose(entry.path(), target);
        }
    }
}

void bind_mount(const fs::path& from, const fs::path& to) {
    must(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
         "mount on " + to.string());
}

// Other mounts below are taken along as mounts.
void copy_directory(const fs::path& from, const fs::path& to) {
    for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
        const fs::path copy = to / entry.path().filename();
        if (entry.is_symlink() || !entry.is_directory()) {
            fs::copy(entry.path(), copy, fs::copy_options::copy_symlinks);
            continue;
        }
        fs::create_directory(copy, entry.path());
        if (device_of(entry.path()) == device_of(from)) {
            copy_directory(entry.path(), copy);
        } else {
            bind_mount(entry.path(), copy);
        }
    }
}

// A tmpfs with a copy of the directory, and with a page in use, because a tmpfs of no pages has no
// limit.
std::string spare_copy(const std::string& directory) {
    std::string copy = "/run/tqdevice/disk";
    fs::create_directories(copy);
    fs::create_directories(directory);
    must(mount("tmpfs", copy.c_str(), "tmpfs", 0, "mode=0755") == 0, "mount on " + copy);
    copy_directory(directory, copy);
    fs::permissions(copy, fs::status(directory).permissions());
    write_file(copy + "/.full", "x");
    return copy;
}

}  // namespace

void must(bool done, const std::string& what) {
    if (!done) throw std::system_error(errno, std::generic_category(), what);
}

void write_file(const std::string& path, std::string_view content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    must(file.good(), path);
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    must(file.is_open(), path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool exists(const std::string& path) {
    return fs::exists(path);
}

CommandResult run_command(const std::string& command) {
    const int out = memory_file("out");
    const int err = memory_file("err");
    const pid_t child = fork();
    must(child >= 0, "fork");
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    const int status = wait_for(child);
    return {status, take_content(out), take_content(err)};
}

std::vector<int> open_descriptors() {
    constexpr int kHighest = 1024;
    std::vector<int> open;
    for (int fd = 0; fd < kHighest; fd++) {
        if (fcntl(fd, F_GETFD) != -1) open.push_back(fd);
    }
    return open;
}

void reset_device() {
    clear_directory("/tmp");
    clear_directory("/etc/config");
    fs::copy("/rom/etc/config", "/etc/config", fs::copy_options::recursive);
    fs::copy("/rom/etc/board.conf", "/etc/board.conf", fs::copy_options::overwrite_existing);
}

std::string board_file(const std::string& name) {
    return TQ_SOURCE_DIR "/boards/" + name + ".conf";
}

void use_board(const std::string& name) {
    write_file("/etc/board.conf", read_file(board_file(name)));
}

ScopedMount::ScopedMount(const std::string& source, const std::string& target, const char* type,
                         unsigned long flags, const std::string& options)
    : target_(target) {
    must(mount(source.c_str(), target.c_str(), type, flags, options.c_str()) == 0,
         "mount on " + target);
}

ScopedMount::~ScopedMount() {
    umount2(target_.c_str(), MNT_DETACH);
}

ScopedBind::ScopedBind(const std::string& path, std::string_view content)
    : mount_(make_scratch_file(content), made(path), nullptr, MS_BIND, "") {}

ScopedProc::ScopedProc(const std::map<std::string, std::string>& files)
    : mount_("tmpfs", "/proc", "tmpfs", 0, "mode=0555") {
    for (const auto& [name, content] : files)
        write_file("/proc/" + name, content);
    compose("/run/tqdevice/proc", "/proc");
}

// The files move to a tmpfs, which is then shrunk to what they take.
FullDisk::FullDisk(const std::string& directory)
    : mount_(spare_copy(directory), directory, nullptr, MS_MOVE, "") {
    struct statfs space {};
    must(statfs(directory.c_str(), &space) == 0, directory);
    const std::string used = std::to_string(space.f_blocks - space.f_bfree);
    must(mount("tmpfs", directory.c_str(), "tmpfs", MS_REMOUNT, ("nr_blocks=" + used).c_str()) == 0,
         directory);
}

ReadOnly::ReadOnly(const std::string& directory)
    : mount_(directory, directory, nullptr, MS_BIND | MS_REC, "") {
    must(mount("", directory.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0,
         directory);
}

int as_nobody(const std::function<int()>& body) {
    std::array<int, 2> ends{};
    must(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
    const pid_t child = fork();
    must(child >= 0, "fork");
    if (child == 0) {
        must(setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0, "setuid");
        const int result = body();
        _exit(write(ends[1], &result, sizeof(result)) == sizeof(result) ? 0 : 1);
    }
    close(ends[1]);
    int result = 0;
    const ssize_t size = read(ends[0], &result, sizeof(result));
    close(ends[0]);
    if (wait_for(child) != 0 || size != sizeof(result))
        throw std::runtime_error("the child of as_nobody died");
    return result;
}

}  // namespace tq_test
