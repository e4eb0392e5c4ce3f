/* bits/c++locale.h - nothing here is linked to the C++ run-time library, so that its locales only
 * need to be declared. */
#ifndef TQ_MUSL_CXXLOCALE_H
#define TQ_MUSL_CXXLOCALE_H

#include <locale.h>

#define _GLIBCXX_NUM_CATEGORIES 0

namespace std {

using __c_locale = locale_t;

int __convert_from_v(const __c_locale& locale, char* out, int size, const char* format, ...);

}  // namespace std

#endif
