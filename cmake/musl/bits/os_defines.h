/* bits/os_defines.h - musl's threads are always in the C library, and its <math.h> is plain C99. */
#ifndef TQ_MUSL_OS_DEFINES_H
#define TQ_MUSL_OS_DEFINES_H

#include <features.h>

#define _GLIBCXX_GTHREAD_USE_WEAK 0
#define _GLIBCXX_NO_OBSOLETE_ISINF_ISNAN_DYNAMIC 1

#endif
