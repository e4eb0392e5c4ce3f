// board.h - what other families ask of the board, on any thread.
#pragma once

#include <cstddef>

#include "foundation/hidden.h"

namespace TQ_HIDDEN tq {

// A text of the board library's: more room than any selector needs.
using BoardAnswer = char[64];

// A fact of the radio as text, terminated whatever comes; negative where the board has none.
int ask_radio(int selector, int radio, BoardAnswer& answer);

// Room for the name of an interface, a radio's device or its prefix.
constexpr size_t kNameSize = 32;

// tq_get_eth_ifname into a buffer of the caller's, which is the result where the board has the port
// and names it.
char* eth_ifname(int port, char (&ifname)[kNameSize]);

}  // namespace tq
