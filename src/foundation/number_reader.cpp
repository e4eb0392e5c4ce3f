#include "foundation/number_reader.h"

namespace tq {

namespace {

constexpr int kHexWidth = 8;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// -1 where it is none.
int hex_digit(char c) {
    if (is_digit(c)) return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

bool NumberReader::read(Written& written) {
    skip_blanks();
    written = {*next_ == '-', true, 0};
    if (*next_ == '-' || *next_ == '+') next_++;
    if (!is_digit(*next_)) return false;
    for (; is_digit(*next_); next_++) {
        const auto digit = static_cast<uint64_t>(*next_ - '0');
        written.fits = written.fits &&
                       !__builtin_mul_overflow(written.magnitude, 10U, &written.magnitude) &&
                       !__builtin_add_overflow(written.magnitude, digit, &written.magnitude);
    }
    return true;
}

bool NumberReader::number(uint64_t& value, uint64_t most) {
    Written written;
    if (!read(written)) return false;
    value = written.magnitude;
    if (!written.fits || value > most) {
        value = most;
    } else if (written.negative) {
        value = 0 - value;
    }
    return true;
}

bool NumberReader::number(uint32_t& value) {
    uint64_t wide = 0;
    if (!number(wide, UINT32_MAX)) return false;
    value = static_cast<uint32_t>(wide);
    return true;
}

bool NumberReader::number(uint64_t& value) {
    return number(value, UINT64_MAX);
}

// The sign and a leading 0x count for the width.
bool NumberReader::hex(uint32_t& value) {
    skip_blanks();
    const char* const end_of_field = next_ + kHexWidth;
    const bool negative = *next_ == '-';
    if (*next_ == '-' || *next_ == '+') next_++;
    if (hex_digit(*next_) < 0) return false;
    if (*next_ == '0' && (next_[1] | 0x20) == 'x') next_ += 2;
    value = 0;
    for (; next_ < end_of_field && hex_digit(*next_) >= 0; next_++)
        value = value << 4 | static_cast<uint32_t>(hex_digit(*next_));
    if (negative) value = 0 - value;
    return true;
}

bool NumberReader::number_up_to(uint32_t most, uint32_t& value) {
    Written written;
    if (!read(written) || !written.fits || written.magnitude > (written.negative ? 0 : most))
        return false;
    value = static_cast<uint32_t>(written.magnitude);
    return true;
}

}  // namespace tq
