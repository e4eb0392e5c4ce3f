// file.cpp - configuration files: finding, locking, reading and replacing them.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "internal.h"

namespace uci {
namespace {

class OwnedFd {
  public:
    explicit OwnedFd(int fd) : fd_(fd) {}
    ~OwnedFd() {
        if (fd_ >= 0) close(fd_);
    }
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

int lock_whole(int fd, int operation) {
    int result = 0;
    do {
        result = flock(fd, operation);
    } while (result < 0 && errno == EINTR);
    return result;
}

// Whether the path still names the open file, or another one has been renamed over it.
bool still_names(const char* path, int fd) {
    struct stat named, opened;
    return stat(path, &named) == 0 && fstat(fd, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

int stream_of(OwnedFd* fd, const char* mode, OwnedFile* stream) {
    stream->reset(fdopen(fd->get(), mode));
    if (!*stream) return UCI_ERR_MEM;
    fd->release();
    return UCI_OK;
}

// Where a package is read from.
struct Source {
    OwnedText path;
    const char* name;
    bool has_delta;
    bool uses_conf2;
};

int find_source(const uci_context* ctx, const char* name, Source* source) {
    if (!is_graphic(name)) return UCI_ERR_INVAL;
    if (*name == '.') return UCI_ERR_NOTFOUND;
    const char* slash = strrchr(name, '/');
    if (slash) {
        // A file by its path stands alone: nothing is staged for it.
        if (*name != '/') return UCI_ERR_NOTFOUND;
        *source = {OwnedText(strdup(name)), slash + 1, false, false};
        return source->path ? UCI_OK : UCI_ERR_MEM;
    }
    if (ctx->conf2dir) {
        *source = {join_path(ctx->conf2dir, name), name, true, true};
        if (!source->path) return UCI_ERR_MEM;
        const int error = find_regular(source->path.get());
        if (error != UCI_ERR_NOTFOUND) return error;
    }
    *source = {join_path(ctx->confdir, name), name, true, false};
    return source->path ? UCI_OK : UCI_ERR_MEM;
}

// Takes a package out of the context, so that its file can be read again beside it, and puts one
// of the two back: the old one where it was, or the new one at the end.
class Detached {
  public:
    explicit Detached(uci_package* package) : package_(package), position_(package->e.list.prev) {
        list_remove(&package->e.list);
    }
    ~Detached() {
        if (!package_) return;
        if (fresh_) free_package(fresh_);
        list_insert_after(position_, &package_->e.list);
    }
    Detached(const Detached&) = delete;
    Detached& operator=(const Detached&) = delete;

    int read_again(uci_context* ctx, FILE* stream) {
        OwnedText path(strdup(package_->path));
        if (!path) return UCI_ERR_MEM;
        if (const int error = import(ctx, stream, package_->e.name, &fresh_, true)) return error;
        fresh_->path = path.release();
        fresh_->has_delta = package_->has_delta;
        fresh_->uses_conf2 = package_->uses_conf2;
        return UCI_OK;
    }

    uci_package* fresh() { return fresh_; }

    uci_package* replace() {
        free_package(std::exchange(package_, nullptr));
        return fresh_;
    }

  private:
    uci_package* package_;
    uci_list* position_;
    uci_package* fresh_ = nullptr;
};

// A new content of a file, invisible until it takes the old one's place.
class Replacement {
  public:
    ~Replacement() {
        if (temporary_ && !done_) unlink(temporary_.get());
    }
    Replacement() = default;
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    int write(const char* path, int old_fd, const uci_package* package, bool name_sections);
    int take_place();

  private:
    int create(const char* path);
    int copy_owner(int old_fd);
    int finish_stream();
    OwnedFd open_directory() const;

    OwnedText target_;  // what the path finally names
    OwnedText temporary_;
    OwnedFile stream_;
    bool done_ = false;
};

int Replacement::create(const char* path) {
    target_.reset(realpath(path, nullptr));
    if (!target_) return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_IO;
    char* name = strrchr(target_.get(), '/') + 1;
    char* temporary = nullptr;
    if (asprintf(&temporary, "%.*s.%s.uci-XXXXXX", static_cast<int>(name - target_.get()),
                 target_.get(), name) < 0) {
        return UCI_ERR_MEM;
    }
    OwnedText owned(temporary);
    OwnedFd fd(mkostemp(temporary, O_CLOEXEC));
    if (fd.get() < 0) return UCI_ERR_IO;
    temporary_ = std::move(owned);
    return stream_of(&fd, "w", &stream_);
}

int Replacement::copy_owner(int old_fd) {
    const int fd = fileno(stream_.get());
    struct stat old_status, status;
    if (fstat(old_fd, &old_status) < 0 || fstat(fd, &status) < 0) return UCI_ERR_IO;
    const bool same_owner =
        old_status.st_uid == status.st_uid && old_status.st_gid == status.st_gid;
    // Only root may give a file away; whoever else may replace it becomes its owner.
    if (!same_owner && fchown(fd, old_status.st_uid, old_status.st_gid) < 0 && errno != EPERM) {
        return UCI_ERR_IO;
    }
    return fchmod(fd, old_status.st_mode & 07777) == 0 ? UCI_OK : UCI_ERR_IO;
}

int Replacement::finish_stream() {
    const bool written = fflush(stream_.get()) == 0 && !ferror(stream_.get());
    const bool synced = written && fsync(fileno(stream_.get())) == 0;
    const bool closed = fclose(stream_.release()) == 0;
    return synced && closed ? UCI_OK : UCI_ERR_IO;
}

int Replacement::write(const char* path, int old_fd, const uci_package* package,
                       bool name_sections) {
    if (const int error = create(path)) return error;
    if (const int error = copy_owner(old_fd)) return error;
    write_package(stream_.get(), package, name_sections);
    return finish_stream();
}

OwnedFd Replacement::open_directory() const {
    char* slash = strrchr(target_.get(), '/');
    const OwnedText directory(
        strndup(target_.get(), static_cast<size_t>(slash - target_.get()) + 1));
    return OwnedFd(directory ? open(directory.get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
}

// The directory is opened first: a new file that has taken its place has to be the end of it.
int Replacement::take_place() {
    const OwnedFd directory = open_directory();
    if (directory.get() < 0) return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_IO;
    if (::rename(temporary_.get(), target_.get()) < 0) return UCI_ERR_IO;
    done_ = true;
    return fsync(directory.get()) == 0 ? UCI_OK : UCI_ERR_IO;
}

// Removes a file that did not exist before and is still empty, so that a failed commit leaves
// nothing behind. It is still locked; before it was, somebody else may have made and written it.
class CreatedFile {
  public:
    explicit CreatedFile(const char* path)
        : path_(access(path, F_OK) < 0 && errno == ENOENT ? path : nullptr) {}
    ~CreatedFile() {
        struct stat status;
        if (path_ && stat(path_, &status) == 0 && status.st_size == 0) unlink(path_);
    }
    CreatedFile(const CreatedFile&) = delete;
    CreatedFile& operator=(const CreatedFile&) = delete;
    void keep() { path_ = nullptr; }

  private:
    const char* path_;
};

int replace_file(uci_context* ctx, const uci_package* package, const char* path, FILE* old_stream) {
    const bool name_sections = (ctx->flags & UCI_FLAG_EXPORT_NAME) != 0;
    Replacement replacement;
    if (const int error = replacement.write(path, fileno(old_stream), package, name_sections)) {
        return error;
    }
    return replacement.take_place();
}

// Writes the package as it is in memory, with what is staged on top of it.
int commit_memory(uci_context* ctx, uci_package* package, FILE* stream) {
    StagedChanges staged;
    if (package->has_delta) {
        if (const int error = staged.apply(ctx, package, true)) return error;
        if (!staged.any()) return UCI_OK;
    }
    if (const int error = replace_file(ctx, package, package->path, stream)) return error;
    return staged.clear();
}

// Applies what is staged to the file as it is now, so that what others committed is kept.
int commit_staged(uci_context* ctx, uci_package** package, FILE* stream) {
    if (const int error = save(ctx, *package)) return error;
    Detached detached(*package);
    StagedChanges staged;
    if (const int error = detached.read_again(ctx, stream)) return error;
    if (const int error = staged.apply(ctx, detached.fresh(), true)) return error;
    if (staged.any()) {
        if (const int error = replace_file(ctx, detached.fresh(), (*package)->path, stream))
            return error;
    }
    *package = detached.replace();
    return staged.any() ? staged.clear() : UCI_OK;
}

int ensure_path(uci_context* ctx, uci_package* package) {
    if (package->path) return UCI_OK;
    if (strchr(package->e.name, '/')) return UCI_ERR_IO;
    package->path = join_path(ctx->confdir, package->e.name).release();
    return package->path ? UCI_OK : UCI_ERR_MEM;
}

// ---- listing ----

bool is_config_name(const char* name) {
    return is_graphic(name) && !strchr(name, '.');
}

// Names, collected one behind the other.
struct NameBlock {
    OwnedText text;
    size_t size = 0;
    size_t capacity = 0;
    size_t count = 0;

    int add(const char* name) {
        const size_t length = strlen(name) + 1;
        if (size + length > capacity) {
            const size_t wanted = 2 * (size + length) + 256;
            auto* grown = static_cast<char*>(realloc(text.get(), wanted));
            if (!grown) return UCI_ERR_MEM;
            (void)text.release();
            text.reset(grown);
            capacity = wanted;
        }
        memcpy(text.get() + size, name, length);
        size += length;
        ++count;
        return UCI_OK;
    }

    // One block of sorted pointers with the names behind.
    char** finish() const {
        const size_t pointers = (count + 1) * sizeof(char*);
        auto** list = static_cast<char**>(malloc(pointers + size));
        if (!list) return nullptr;
        char* name = reinterpret_cast<char*>(list) + pointers;
        if (size > 0) memcpy(name, text.get(), size);
        for (size_t i = 0; i < count; name += strlen(name) + 1)
            list[i++] = name;
        list[count] = nullptr;
        std::sort(list, list + count,
                  [](const char* a, const char* b) { return strcmp(a, b) < 0; });
        return list;
    }
};

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

int list_configs(const uci_context* ctx, char*** list) {
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(ctx->confdir));
    if (!directory) return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_NOTFOUND;
    NameBlock names;
    while (const dirent* entry = readdir(directory.get())) {
        if (!is_config_name(entry->d_name)) continue;
        struct stat status;
        if (fstatat(dirfd(directory.get()), entry->d_name, &status, 0) < 0) continue;
        if (!S_ISREG(status.st_mode)) continue;
        if (const int error = names.add(entry->d_name)) return error;
    }
    *list = names.finish();
    return *list ? UCI_OK : UCI_ERR_MEM;
}

}  // namespace

OwnedText join_path(const char* directory, const char* name) {
    char* path = nullptr;
    return OwnedText(asprintf(&path, "%s/%s", directory, name) < 0 ? nullptr : path);
}

int find_regular(const char* path) {
    struct stat status;
    if (stat(path, &status) == 0) return S_ISREG(status.st_mode) ? UCI_OK : UCI_ERR_NOTFOUND;
    const bool absent = errno == ENOENT || errno == ENOTDIR || errno == EACCES;
    return absent ? UCI_ERR_NOTFOUND : UCI_ERR_IO;
}

int open_locked(const char* path, Lock lock, mode_t create_mode, OwnedFile* stream) {
    const bool exclusive = lock == Lock::kExclusive;
    const int flags = (exclusive ? O_RDWR : O_RDONLY) | (create_mode ? O_CREAT : 0) | O_CLOEXEC;
    for (;;) {
        OwnedFd fd(open(path, flags, create_mode));
        if (fd.get() < 0) return errno == ENOENT ? UCI_ERR_NOTFOUND : UCI_ERR_IO;
        if (lock_whole(fd.get(), exclusive ? LOCK_EX : LOCK_SH) < 0) return UCI_ERR_IO;
        if (still_names(path, fd.get())) return stream_of(&fd, exclusive ? "r+" : "r", stream);
        if (!create_mode && access(path, F_OK) < 0) return UCI_ERR_NOTFOUND;
    }
}

int load(uci_context* ctx, const char* name, uci_package** package) {
    Source source;
    if (const int error = find_source(ctx, name, &source)) return error;
    if (const int error = find_regular(source.path.get())) return error;
    OwnedFile stream;
    if (const int error = open_locked(source.path.get(), Lock::kShared, 0, &stream)) return error;
    uci_package* loaded = nullptr;
    if (const int error = import(ctx, stream.get(), source.name, &loaded, true)) return error;

    loaded->path = source.path.release();
    loaded->has_delta = source.has_delta;
    loaded->uses_conf2 = source.uses_conf2;
    if (loaded->has_delta) {
        if (const int error = StagedChanges().apply(ctx, loaded, false)) {
            free_package(loaded);
            return error;
        }
    }
    *package = loaded;
    return UCI_OK;
}

int commit(uci_context* ctx, uci_package** package, bool overwrite) {
    if (!(*package)->path && !overwrite) return UCI_ERR_INVAL;
    if (const int error = ensure_path(ctx, *package)) return error;

    const OwnedText path(strdup((*package)->path));
    if (!path) return UCI_ERR_MEM;
    OwnedFile stream;
    CreatedFile created(path.get());
    if (const int error = open_locked(path.get(), Lock::kExclusive, UCI_FILEMODE, &stream)) {
        return error;
    }
    const bool from_memory = overwrite || !(*package)->has_delta;
    const int error = from_memory ? commit_memory(ctx, *package, stream.get())
                                  : commit_staged(ctx, package, stream.get());
    if (!error) created.keep();
    return error;
}

}  // namespace uci

int uci_load(uci_context* ctx, const char* name, uci_package** package) {
    if (!ctx || !name) return uci::reject(ctx);
    uci::begin(ctx);
    uci_package* loaded = nullptr;
    const int error = uci::load(ctx, name, &loaded);
    if (!error && package) *package = loaded;
    return uci::finish(ctx, error);
}

int uci_unload(uci_context* ctx, uci_package* p) {
    if (!ctx || !p) return uci::reject(ctx);
    uci::free_package(p);
    return uci::finish(ctx, UCI_OK);
}

int uci_commit(uci_context* ctx, uci_package** package, bool overwrite) {
    if (!ctx || !package || !*package) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::commit(ctx, package, overwrite));
}

int uci_list_configs(uci_context* ctx, char*** list) {
    if (!ctx || !list) return uci::reject(ctx);
    return uci::finish(ctx, uci::list_configs(ctx, list));
}
