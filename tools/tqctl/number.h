// number.h - numbers on the command line.
#pragma once

#include <cstdint>
#include <optional>

#include "command.h"

namespace tqctl {

// The decimal number that the whole text is, where it lies within these.
std::optional<int64_t> parse_number(const char* text, int64_t least, int64_t most);
std::optional<uint32_t> parse_u32(const char* text);

// The same of an argument; where it is none, that is said, as "'x' is not a port from 1 to 65535".
std::optional<int64_t> take_number(const Context& context, const char* argument, const char* what,
                                   int64_t least, int64_t most);
std::optional<uint32_t> take_u32(const Context& context, const char* argument);
std::optional<int> take_int(const Context& context, const char* argument);
std::optional<uint16_t> take_port(const Context& context, const char* argument);

}  // namespace tqctl
