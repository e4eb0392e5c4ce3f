// hidden.h - the namespace of what the sources share among themselves. -fvisibility=hidden speaks
// of definitions; said of a declaration too, a call is not compiled as one that may leave the
// library, which costs 4 bytes more on MIPS.
#pragma once

#define TQ_HIDDEN [[gnu::visibility("hidden")]]
