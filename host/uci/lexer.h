// lexer.h - lines of a stream and the words in them.
#ifndef UCI_LEXER_H
#define UCI_LEXER_H

#include "internal.h"

namespace uci {

// Reads a stream by lines and takes words from the line in place: quotes and escapes are removed
// where they stand, a value with line breaks draws further lines in behind. Words are given as
// offsets, because the buffer moves when it grows.
class Lexer {
  public:
    explicit Lexer(FILE* stream) : stream_(stream) {}
    ~Lexer();
    Lexer(const Lexer&) = delete;
    Lexer& operator=(const Lexer&) = delete;

    FILE* stream() const { return stream_; }

    // Drops what is left of the line and reads the next one, which is empty at the stream's end.
    int next_line();
    bool at_end() const { return feof(stream_) != 0; }

    bool line_has_more() const { return buffer_[position_] != '\0'; }
    void skip_blanks();
    void skip_line();

    // A statement's first word is not quoted, and only a blank or a tab ends it.
    struct Word {
        size_t offset;
        size_t length;
    };
    Word peek_command() const;
    bool ends_with(Word command) const { return command.offset + command.length == length_; }
    void skip_command(Word command);

    // The next word, empty at the statement's end. A semicolon there is consumed.
    int argument(size_t* offset);

    char* text(size_t offset) { return buffer_ + offset; }
    char* rest() { return buffer_ + position_; }

    // Keeps the reason of a syntax error at the current place.
    int fail(const char* reason);
    const char* reason() const { return reason_; }
    int line() const { return line_; }
    size_t byte() const { return position_; }

  private:
    int reserve(size_t size);
    int read_at(size_t offset);
    int append(const char* bytes, size_t length);
    int double_quoted(size_t* end);
    int single_quoted(size_t* end);
    int escape(size_t* end);
    int continue_quote(const char* unterminated);

    FILE* stream_;
    char* buffer_ = nullptr;  // the line, always terminated
    size_t capacity_ = 0;
    size_t length_ = 0;
    size_t position_ = 0;
    char* chunk_ = nullptr;  // the physical line read last
    size_t chunk_size_ = 0;
    int line_ = 0;
    const char* reason_ = nullptr;
};

}  // namespace uci

#endif
