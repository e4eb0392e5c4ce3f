// device.h - the simulated device as the tests see and change it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tq_test {

// Throws, with errno's text, where it was not done.
void must(bool done, const std::string& what);

// Replaces the file, making its directories where they are missing. Throws on failure, as all of
// these do.
void write_file(const std::string& path, std::string_view content);
std::string read_file(const std::string& path);
bool exists(const std::string& path);

struct CommandResult {
    int status;  // as a shell tells it: 128 + N for signal N
    std::string out;
    std::string err;
};
CommandResult run_command(const std::string& command);

// Those of this process.
std::vector<int> open_descriptors();

// Brings back the configuration and the board that the device booted with, and empties /tmp.
void reset_device();

// The file in boards/ that describes the board of that name ("tri-radio"), and the device with that
// board: not with its ports, which it has booted with.
std::string board_file(const std::string& name);
void use_board(const std::string& name);

// Each test starts on a reset device.
class DeviceTest : public testing::Test {
  protected:
    DeviceTest() { reset_device(); }
};

// A mount that ends with its scope.
class ScopedMount {
  public:
    ScopedMount(const std::string& source, const std::string& target, const char* type,
                unsigned long flags, const std::string& options);
    ~ScopedMount();
    ScopedMount(const ScopedMount&) = delete;
    ScopedMount& operator=(const ScopedMount&) = delete;

    const std::string& target() const { return target_; }

  private:
    std::string target_;
};

// The file at `path` holds `content`; it is made empty where there was none.
class ScopedBind {
  public:
    ScopedBind(const std::string& path, std::string_view content);

  private:
    ScopedMount mount_;
};

// /proc holds these files (by their paths below it), and the kernel's for the rest; of the
// processes, those that were there when it began.
class ScopedProc {
  public:
    explicit ScopedProc(const std::map<std::string, std::string>& files);

  private:
    ScopedMount mount_;
};

// The directory keeps its files, on a file system that has no free page for more.
class FullDisk {
  public:
    explicit FullDisk(const std::string& directory);

  private:
    ScopedMount mount_;
};

class ReadOnly {
  public:
    explicit ReadOnly(const std::string& directory);

  private:
    ScopedMount mount_;
};

// The result of `body` in a child process that runs as nobody.
int as_nobody(const std::function<int()>& body);

}  // namespace tq_test
