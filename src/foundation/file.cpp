#include "foundation/file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tq {

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
    const UniqueFd file(open(path, O_RDONLY | O_CLOEXEC));
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

// Takes back the terminator behind the piece that was handed out.
void LineReader::step_over_piece() {
    if (piece_ == 0) return;
    begin_ += piece_;
    buffer_[begin_] = after_piece_;
    piece_ = 0;
}

// The length of the next piece, or 0 where more has to be read first.
size_t LineReader::complete_piece() const {
    const size_t limit = std::min(end_ - begin_, piece_limit_);
    const char* first = &buffer_[begin_];
    const void* feed = memchr(first, '\n', limit);
    if (feed) return static_cast<size_t>(static_cast<const char*>(feed) - first) + 1;
    return limit == piece_limit_ ? limit : 0;
}

void LineReader::skip(std::string_view start) {
    while (end_ < start.size() && refill())
        continue;
    if (end_ >= start.size() && memcmp(buffer_, start.data(), start.size()) == 0)
        begin_ = start.size();
}

const char* LineReader::next() {
    step_over_piece();
    do {
        piece_ = complete_piece();
    } while (piece_ == 0 && refill());
    if (piece_ == 0) piece_ = end_ - begin_;
    if (piece_ == 0) return nullptr;
    after_piece_ = buffer_[begin_ + piece_];
    buffer_[begin_ + piece_] = '\0';
    return &buffer_[begin_];
}

}  // namespace tq
