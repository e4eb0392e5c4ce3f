// file.h - owners of streams and descriptors.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>

namespace tqctl {

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

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
