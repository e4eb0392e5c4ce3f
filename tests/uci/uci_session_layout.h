/* uci_session_layout.h - where the members of a session are in a program without libuci's headers.
 */
#ifndef UCI_SESSION_LAYOUT_H
#define UCI_SESSION_LAYOUT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct SessionLayout {
    size_t size, ctx, pkg, flags, p, s, o, last, package, section, option, value;
};

struct SessionLayout session_layout_without_libuci(void);

#ifdef __cplusplus
}
#endif

#endif
