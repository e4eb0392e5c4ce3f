#include "uci_session_layout.h"

#include <tq/uci_session.h>

#ifdef TQ_HAS_UCI_H
#error "compile this without libuci's headers"
#endif

struct SessionLayout session_layout_without_libuci(void) {
    const struct SessionLayout layout = {
        sizeof(uci_config_ctx),
        offsetof(uci_config_ctx, ctx),
        offsetof(uci_config_ctx, pkg),
        offsetof(uci_config_ctx, ptr.flags),
        offsetof(uci_config_ctx, ptr.p),
        offsetof(uci_config_ctx, ptr.s),
        offsetof(uci_config_ctx, ptr.o),
        offsetof(uci_config_ctx, ptr.last),
        offsetof(uci_config_ctx, ptr.package),
        offsetof(uci_config_ctx, ptr.section),
        offsetof(uci_config_ctx, ptr.option),
        offsetof(uci_config_ctx, ptr.value),
    };
    return layout;
}
