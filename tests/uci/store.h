// store.h - what is in the UCI store, and a file of it as a change leaves it.
#pragma once

#include <stdexcept>
#include <string>

#include "support/device.h"

namespace tq_test {

// A configuration file.
inline std::string stored(const std::string& file) {
    return read_file("/etc/config/" + file);
}

// What waits for its next commit.
inline std::string staged(const std::string& file) {
    const std::string path = "/tmp/.uci/" + file;
    return exists(path) ? read_file(path) : "";
}

// The text with the first `from` replaced, which must be there.
inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) throw std::invalid_argument("no " + from);
    return text.replace(at, from.size(), to);
}

}  // namespace tq_test
