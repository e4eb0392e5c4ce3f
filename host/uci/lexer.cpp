// lexer.cpp - lines of a stream and the words in them.
#include "lexer.h"

#include <cerrno>
#include <cstring>

namespace uci {
namespace {

// The C locale's white space, whatever locale the program has set.
bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

bool ends_word(char c) {
    return c == '\0' || c == '#' || c == ';' || is_space(c);
}

}  // namespace

Lexer::~Lexer() {
    free(buffer_);
    free(chunk_);
}

int Lexer::reserve(size_t size) {
    if (size <= capacity_) return UCI_OK;
    const size_t wanted = size < 2 * capacity_ ? 2 * capacity_ : size + 128;
    auto* grown = static_cast<char*>(realloc(buffer_, wanted));
    if (!grown) return UCI_ERR_MEM;
    buffer_ = grown;
    capacity_ = wanted;
    return UCI_OK;
}

int Lexer::append(const char* bytes, size_t length) {
    if (const int error = reserve(length_ + length + 1)) return error;
    memcpy(buffer_ + length_, bytes, length);
    length_ += length;
    buffer_[length_] = '\0';
    return UCI_OK;
}

// Cuts the buffer at the offset and reads a line there. A NUL byte hides the rest of its line, line
// break included.
int Lexer::read_at(size_t offset) {
    length_ = offset;
    if (const int error = append("", 0)) return error;
    for (;;) {
        errno = 0;
        const ssize_t got = getline(&chunk_, &chunk_size_, stream_);
        if (got < 0 && feof(stream_)) return UCI_OK;
        if (got < 0) return errno == ENOMEM ? UCI_ERR_MEM : UCI_ERR_IO;

        const size_t visible = strlen(chunk_);
        if (const int error = append(chunk_, visible)) return error;
        if (visible > 0 && chunk_[visible - 1] == '\n') {
            ++line_;
            return UCI_OK;
        }
        if (visible == static_cast<size_t>(got)) return UCI_OK;
    }
}

int Lexer::next_line() {
    position_ = 0;
    return read_at(0);
}

void Lexer::skip_blanks() {
    while (is_space(buffer_[position_]))
        ++position_;
}

void Lexer::skip_line() {
    position_ = length_;
    buffer_[position_] = '\0';
}

// Byte by byte: a string function may be checked against the whole rest of the line at each call,
// and a line can hold any number of statements.
Lexer::Word Lexer::peek_command() const {
    size_t begin = position_;
    while (is_blank(buffer_[begin]))
        ++begin;
    size_t end = begin;
    while (buffer_[end] != '\0' && !is_blank(buffer_[end]))
        ++end;
    return {begin, end - begin};
}

void Lexer::skip_command(Word command) {
    position_ = command.offset + command.length + 1;
}

int Lexer::fail(const char* reason) {
    reason_ = reason;
    return UCI_ERR_PARSE;
}

int Lexer::argument(size_t* offset) {
    skip_blanks();
    size_t end = position_;
    *offset = position_;
    if (buffer_[position_] == ';') {
        buffer_[position_++] = '\0';
        return UCI_OK;
    }
    while (!ends_word(buffer_[position_])) {
        int error = UCI_OK;
        switch (buffer_[position_]) {
            case '"':
                error = double_quoted(&end);
                break;
            case '\'':
                error = single_quoted(&end);
                break;
            case '\\':
                error = escape(&end);
                break;
            default:
                buffer_[end++] = buffer_[position_++];
        }
        if (error) return error;
    }
    // The terminator lies on a semicolon that follows a word without quotes: what is behind it on
    // the line is then ignored. Files in the field are read this way.
    const char terminator = buffer_[position_];
    buffer_[end] = '\0';
    if (terminator == '#') buffer_[position_] = '\0';
    if (is_space(terminator)) ++position_;
    return UCI_OK;
}

int Lexer::double_quoted(size_t* end) {
    ++position_;
    while (buffer_[position_] != '"') {
        int error = UCI_OK;
        if (buffer_[position_] == '\0') {
            error = continue_quote("EOF with unterminated \"");
        } else if (buffer_[position_] == '\\') {
            error = escape(end);
        } else {
            buffer_[(*end)++] = buffer_[position_++];
        }
        if (error) return error;
    }
    ++position_;
    return UCI_OK;
}

int Lexer::single_quoted(size_t* end) {
    ++position_;
    while (buffer_[position_] != '\'') {
        if (buffer_[position_] == '\0') {
            if (const int error = continue_quote("EOF with unterminated '")) return error;
            continue;
        }
        buffer_[(*end)++] = buffer_[position_++];
    }
    ++position_;
    return UCI_OK;
}

// A backslash takes the next character as it is; before a line break both vanish.
int Lexer::escape(size_t* end) {
    ++position_;
    if (buffer_[position_] == '\n') return read_at(position_);
    if (buffer_[position_] != '\0') buffer_[(*end)++] = buffer_[position_++];
    return UCI_OK;
}

int Lexer::continue_quote(const char* unterminated) {
    if (const int error = read_at(position_)) return error;
    return line_has_more() ? UCI_OK : fail(unterminated);
}

}  // namespace uci
