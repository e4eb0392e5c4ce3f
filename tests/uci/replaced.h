// replaced.h - a configuration file as a change leaves it.
#pragma once

#include <stdexcept>
#include <string>

namespace tq_test {

// The text with the first `from` replaced, which must be there.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) throw std::invalid_argument("no " + from);
    return text.replace(at, from.size(), to);
}

}  // namespace tq_test
