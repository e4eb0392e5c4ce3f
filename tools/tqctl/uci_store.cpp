#include "uci_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <uci.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

#include "file.h"

namespace tqctl {

namespace {

constexpr char kConfigDirectory[] = "/etc/config";
constexpr char kDeltaDirectory[] = "/tmp/.uci";

// What a change adds to a file at most: a path with its value.
constexpr size_t kLongestChange = 1024;

// Where most values fit, whatever the files' sizes are.
constexpr size_t kUsualRoom = 65536;

class FilePath {
  public:
    FilePath(const char* directory, const char* file) {
        snprintf(text_, sizeof(text_), "%s/%s", directory, file);
    }
    [[nodiscard]] const char* c_str() const { return text_; }

  private:
    char text_[PATH_MAX];
};

size_t size_of(const FilePath& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? static_cast<size_t>(status.st_size) : 0;
}

struct FreeContext {
    void operator()(uci_context* context) const { uci_free_context(context); }
};

// The library tells a value that is not there and a file that cannot be loaded by its log alone.
bool loads(const char* file) {
    const std::unique_ptr<uci_context, FreeContext> context(uci_alloc_context());
    uci_package* package = nullptr;
    return context && uci_load(context.get(), file, &package) == UCI_OK;
}

Cause cause_of_error(int error) {
    return {exit_code_of(error), strerror(error)};
}

std::optional<Cause> obstacle_to_new_file(const char* directory, size_t size) {
    if (eaccess(directory, W_OK | X_OK) != 0) return cause_of_error(errno);
    if (is_full(directory, size)) return cause_of_error(ENOSPC);
    return std::nullopt;
}

}  // namespace

ExitCode explain(const Context& context, const char* subject, const Cause& cause) {
    return context.fail(cause.code, "%s: %s", subject, cause.text);
}

bool is_present(const char* file) {
    const FilePath path(kConfigDirectory, file);
    return eaccess(path.c_str(), F_OK) == 0;
}

bool has_staged_changes(const char* file) {
    return size_of({kDeltaDirectory, file}) > 0;
}

// A device or a FIFO is not even opened: that alone can do something.
std::optional<Cause> obstacle_to_reading(const char* file) {
    const FilePath path(kConfigDirectory, file);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return cause_of_error(errno);
    if (!S_ISREG(status.st_mode)) return Cause{ExitCode::kRefused, "not a regular file"};
    const UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    char byte = 0;
    if (fd.get() < 0 || read(fd.get(), &byte, 1) < 0) return cause_of_error(errno);
    return std::nullopt;
}

Cause cause_of_failure(const char* file, const char* otherwise) {
    if (const auto obstacle = obstacle_to_reading(file)) return *obstacle;
    if (!loads(file)) return {ExitCode::kDamaged, "the configuration file has a syntax error"};
    return {ExitCode::kRefused, otherwise};
}

ExitCode load_session(const Context& context, const uci_entry& entry, uci_config_ctx& session) {
    if (const auto obstacle = obstacle_to_reading(entry.file))
        return explain(context, entry.file, *obstacle);
    if (load_uci_config(entry.id, &session) == 0) return ExitCode::kDone;
    return explain(context, entry.file, cause_of_failure(entry.file, "it cannot be loaded"));
}

// The change is staged in its directory, then a new file takes the place of the old one.
std::optional<Cause> obstacle_to_change(const char* file) {
    if (const auto obstacle = obstacle_to_reading(file)) return obstacle;
    const FilePath path(kConfigDirectory, file);
    if (eaccess(path.c_str(), W_OK) != 0) return cause_of_error(errno);
    const char* delta = eaccess(kDeltaDirectory, F_OK) == 0 ? kDeltaDirectory : "/tmp";
    if (const auto obstacle = obstacle_to_new_file(delta, kLongestChange)) return obstacle;
    return obstacle_to_new_file(kConfigDirectory, size_of(path) + kLongestChange);
}

// A value is shorter than the file and the staged changes that it comes from.
size_t value_room(const char* file) {
    const size_t sum = size_of({kConfigDirectory, file}) + size_of({kDeltaDirectory, file});
    return std::min<size_t>(kUsualRoom + sum, INT_MAX);
}

}  // namespace tqctl
