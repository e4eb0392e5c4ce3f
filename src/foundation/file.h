// file.h - owners of descriptors, streams and heap text, and the reader of small text files.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>
#include <utility>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

// Nothing where it is negative. A function, so that the end of each owner is but one call.
void close_descriptor(int fd);

class UniqueFd {
  public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { close_descriptor(fd_); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    // Hands the descriptor to the caller.
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

// A stream of stdio, for the line readers that the interface has on one.
class UniqueFile {
  public:
    explicit UniqueFile(FILE* stream) : stream_(stream) {}
    ~UniqueFile() {
        if (stream_) fclose(stream_);
    }
    UniqueFile(const UniqueFile&) = delete;
    UniqueFile& operator=(const UniqueFile&) = delete;

    [[nodiscard]] FILE* get() const { return stream_; }
    explicit operator bool() const { return stream_ != nullptr; }

  private:
    FILE* stream_;
};

// The reading end of a command's output. Closing it waits for the command; its status is dropped.
class Pipe {
  public:
    explicit Pipe(const char* command) : stream_(popen(command, "re")) {}
    ~Pipe() {
        if (stream_) pclose(stream_);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    [[nodiscard]] int fd() const { return fileno(stream_); }
    explicit operator bool() const { return stream_ != nullptr; }

  private:
    FILE* stream_;
};

// Text that came from malloc, strdup and their like.
class HeapText {
  public:
    explicit HeapText(char* text) : text_(text) {}
    ~HeapText() { free(text_); }
    HeapText(const HeapText&) = delete;
    HeapText& operator=(const HeapText&) = delete;

    [[nodiscard]] char* get() const { return text_; }
    explicit operator bool() const { return text_ != nullptr; }

    // Hands the text to the caller.
    char* release() { return std::exchange(text_, nullptr); }

  private:
    char* text_;
};

// Opens a file or a device, to be closed on exec. The descriptor; -1 with errno.
int open_for_reading(const char* path);

// Like read(2), but not interrupted by signals.
ssize_t read_some(int fd, void* buffer, size_t size);

// Writes a text file anew. 0; 1 where it is not written whole; -1 where it cannot be opened, with
// errno.
int write_file(const char* path, const char* text);

// A small text file, as much of it as fits and as one read gives; false, with an empty text, where
// there is nothing to read.
bool read_text(int fd, std::span<char> text);

// The same for the first line of the file at this path, with its line feed. 1; 0 where there is
// nothing to read; -1 where the file cannot be opened, with errno.
int read_first_line(const char* path, std::span<char> line);

// Hands out the lines of a descriptor as fgets into 1024 bytes does: with their line feed, a longer
// line in pieces of 1023 bytes, or of another size. The descriptor is lent; no byte is copied.
class LineReader {
  public:
    static constexpr size_t kPiece = 1023;
    static constexpr size_t kLongPiece = 4095;

    explicit LineReader(int fd, size_t piece_limit = kPiece) : fd_(fd), piece_limit_(piece_limit) {}

    // The next piece, valid until the next call; null at the end or when the read fails.
    const char* next();

    // The piece's length, which its text does not tell where it has NUL bytes in it.
    [[nodiscard]] size_t length() const { return piece_; }

    [[nodiscard]] bool failed() const { return failed_; }

    // Drops these bytes, at most a piece of them, where the input starts with them.
    void skip(std::string_view start);

  private:
    static constexpr size_t kReadSize = 8192;

    bool refill();

    int fd_;
    size_t piece_limit_;
    size_t begin_ = 0;
    size_t end_ = 0;
    size_t piece_ = 0;  // what was handed out, and the byte in the place of its terminator
    char after_piece_ = '\0';
    bool failed_ = false;
    char buffer_[kPiece + kReadSize + 1];
    static_assert(kLongPiece <= kReadSize);
};

}  // namespace tq
