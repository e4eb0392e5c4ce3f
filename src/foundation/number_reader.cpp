#include "foundation/number_reader.h"

#include <utility>

namespace tq {

bool NumberReader::read(Written& written) {
    skip_blanks();
    const bool negative = literal('-');
    if (!negative) literal('+');
    const char* digit = next_;
    uint64_t magnitude = 0;
    bool fits = true;
    for (; is_digit(*digit); digit++) {
        const auto ones = static_cast<unsigned>(*digit - '0');
        if (magnitude > UINT64_MAX / 10) fits = false;
        magnitude = magnitude * 10 + ones;
        if (magnitude < ones) fits = false;
    }
    written = {negative, fits, magnitude};
    return digit != std::exchange(next_, digit);
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

bool NumberReader::number(int32_t& value) {
    Written written;
    if (!read(written) || !written.fits || written.magnitude > UINT32_MAX) return false;
    const auto magnitude = static_cast<uint32_t>(written.magnitude);
    value = static_cast<int32_t>(written.negative ? 0 - magnitude : magnitude);
    return true;
}

std::string_view NumberReader::word() {
    skip_blanks();
    const char* first = next_;
    while (*next_ != '\0' && !is_blank(*next_))
        next_++;
    return {first, static_cast<size_t>(next_ - first)};
}

bool NumberReader::number_up_to(uint32_t most, uint32_t& value) {
    Written written;
    if (!read(written) || !written.fits || written.magnitude > (written.negative ? 0 : most))
        return false;
    value = static_cast<uint32_t>(written.magnitude);
    return true;
}

}  // namespace tq
