// printed.h - what the code under test prints on standard output, on standard error, or to a
// stream.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tq_test {

// Takes the place of standard output, or error, until its scope ends.
class CapturedOutput {
  public:
    explicit CapturedOutput(int fd = STDOUT_FILENO)
        : fd_(fd), saved_(dup(fd)), file_(memfd_create("output", MFD_CLOEXEC)) {
        fflush(stdout);
        dup2(file_, fd_);
    }
    ~CapturedOutput() {
        fflush(stdout);
        dup2(saved_, fd_);
        close(saved_);
        close(file_);
    }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    // What was printed so far.
    std::string text() const {
        fflush(stdout);
        std::string text;
        std::array<char, 4096> buffer{};
        ssize_t size = 0;
        while ((size = pread(file_, buffer.data(), buffer.size(),
                             static_cast<off_t>(text.size()))) > 0)
            text.append(buffer.data(), static_cast<size_t>(size));
        return text;
    }

  private:
    int fd_;
    int saved_;
    int file_;
};

// What the callable prints.
template <typename Body>
std::string printed(Body body) {
    const CapturedOutput output;
    body();
    return output.text();
}

// What the callable writes to the stream that it is given.
template <typename Write>
std::string written(Write write) {
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    write(stream);
    fclose(stream);
    std::string result(text, size);
    free(text);
    return result;
}

// What a call gave and what it printed.
struct Outcome {
    int result;
    std::string text;
    bool operator==(const Outcome&) const = default;
};

template <typename Call>
Outcome outcome(Call call) {
    const CapturedOutput output;
    const int result = call();
    return {result, output.text()};
}

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << outcome.result << " \"" << outcome.text << '"';
}

}  // namespace tq_test
