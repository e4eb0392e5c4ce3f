// number_reader.h - reads numbers out of text as sscanf does where a long has 32 bits.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

class NumberReader {
  public:
    explicit NumberReader(const char* text) : next_(text) {}

    // As "%u" and "%lu": blanks are skipped, a sign wraps around, and what 32 bits do not hold is
    // the largest number. False where no number follows.
    bool number(uint32_t& value);

    // As "%llu".
    bool number(uint64_t& value);

    // As "%d", up to what an unsigned number of 32 bits holds; beyond that it is none.
    bool number(int32_t& value);

    // As "%d", where what is below zero is of no use, nor what is above `most`. False where no such
    // number follows.
    bool number_up_to(uint32_t most, uint32_t& value);

    bool literal(char wanted) {
        if (*next_ != wanted) return false;
        next_++;
        return true;
    }

    bool literal(std::string_view wanted) {
        return std::ranges::all_of(wanted, [this](char c) { return literal(c); });
    }

    // As "%s": what there is up to the next blank, of no length at the end of the text.
    std::string_view word();

    static bool is_digit(char c) { return c >= '0' && c <= '9'; }
    static bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

  private:
    // A number as it is written; what 64 bits do not hold is more than every limit.
    struct Written {
        bool negative;
        bool fits;
        uint64_t magnitude;
    };

    void skip_blanks() {
        const char* first = next_;
        while (is_blank(*first))
            first++;
        next_ = first;
    }

    bool read(Written& written);
    bool number(uint64_t& value, uint64_t most);

    const char* next_;
};

}  // namespace tq
