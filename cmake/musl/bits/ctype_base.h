/* bits/ctype_base.h - the classes of characters, which musl's <ctype.h> has functions for and no
 * table. */
#ifndef TQ_MUSL_CTYPE_BASE_H
#define TQ_MUSL_CTYPE_BASE_H

namespace std {

struct ctype_base {
    using mask = unsigned short;
    using __to_type = const int*;

    static const mask upper = 1 << 0;
    static const mask lower = 1 << 1;
    static const mask digit = 1 << 2;
    static const mask xdigit = 1 << 3;
    static const mask space = 1 << 4;
    static const mask cntrl = 1 << 5;
    static const mask punct = 1 << 6;
    static const mask blank = 1 << 7;
    static const mask alpha = upper | lower;
    static const mask alnum = alpha | digit;
    static const mask graph = alnum | punct;
    static const mask print = graph | 1 << 8;
};

}  // namespace std

#endif
