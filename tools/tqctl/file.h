// file.h - owners of streams and descriptors, and the room for files.
#pragma once

#include <sys/statvfs.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace tqctl {

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// A file system of no stated size, a ramfs for one, has no end.
inline bool is_full(const char* directory, size_t needed) {
    struct statvfs space {};
    if (statvfs(directory, &space) != 0 || space.f_blocks == 0) return false;
    return uint64_t{space.f_bavail} * space.f_frsize < needed;
}

class UniqueFd {
  public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() {
        if (fd_ >= 0) close(fd_);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_;
};

}  // namespace tqctl
