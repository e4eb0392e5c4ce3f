#include "foundation/file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tq {

namespace {

// The length of the text's first piece, or 0 where more has to be read first.
size_t complete_piece(std::string_view text, size_t limit) {
    const size_t length = std::min(text.size(), limit);
    const void* feed = memchr(text.data(), '\n', length);
    if (feed) return static_cast<size_t>(static_cast<const char*>(feed) - text.data()) + 1;
    return length == limit ? limit : 0;
}

}  // namespace

void close_descriptor(int fd) {
    if (fd >= 0) close(fd);
}

int open_for_reading(const char* path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}

ssize_t read_some(int fd, void* buffer, size_t size) {
    ssize_t got = 0;
    do {
        got = read(fd, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

int write_file(const char* path, const char* text) {
    const UniqueFd file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!file) return -1;
    const size_t length = strlen(text);
    return write(file.get(), text, length) == static_cast<ssize_t>(length) ? 0 : 1;
}

bool read_text(int fd, std::span<char> text) {
    const ssize_t got = read_some(fd, text.data(), text.size() - 1);
    text[got > 0 ? static_cast<size_t>(got) : 0] = '\0';
    return got > 0;
}

int read_first_line(const char* path, std::span<char> line) {
    const UniqueFd file(open_for_reading(path));
    if (!file) return -1;
    const bool got = read_text(file.get(), line);
    if (char* feed = strchr(line.data(), '\n')) feed[1] = '\0';
    return got ? 1 : 0;
}

// Moves what is left, less than a piece, to the front and reads behind it; false at the end of the
// input, which a failure is.
bool LineReader::refill() {
    if (failed_) return false;
    memmove(buffer_, &buffer_[begin_], end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    const size_t room = sizeof(buffer_) - 1 - end_;
    const ssize_t got = read_some(fd_, &buffer_[end_], std::min(room, kReadSize));
    failed_ = got < 0;
    if (got <= 0) return false;
    end_ += static_cast<size_t>(got);
    return true;
}

void LineReader::skip(std::string_view start) {
    while (end_ < start.size() && refill())
        continue;
    if (end_ >= start.size() && memcmp(buffer_, start.data(), start.size()) == 0)
        begin_ = start.size();
}

const char* LineReader::next() {
    if (piece_ > 0) {
        begin_ += piece_;
        buffer_[begin_] = after_piece_;
    }
    do {
        piece_ = complete_piece({&buffer_[begin_], end_ - begin_}, piece_limit_);
    } while (piece_ == 0 && refill());
    if (piece_ == 0) piece_ = end_ - begin_;
    if (piece_ == 0) return nullptr;
    after_piece_ = buffer_[begin_ + piece_];
    buffer_[begin_ + piece_] = '\0';
    return &buffer_[begin_];
}

}  // namespace tq
