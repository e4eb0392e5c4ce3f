// board.h - the board fact that a family needs on any thread.
#pragma once

#include <cstddef>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

// Room for the name of an interface, a radio's device or its prefix.
constexpr size_t kNameSize = 32;

// tq_get_eth_ifname into a buffer of the caller's, which is the result where the board has the port
// and names it.
char* eth_ifname(int port, char (&ifname)[kNameSize]);

}  // namespace tq
