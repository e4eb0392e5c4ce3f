/* bits/c++config.h - what g++ finds out about the C library when it is built, put right for musl;
 * the headers beside this one are those that a g++ for another C library has in other words.
 */
#ifndef TQ_MUSL_CXXCONFIG_H
#define TQ_MUSL_CXXCONFIG_H

#include_next <bits/c++config.h>

#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK

#endif
