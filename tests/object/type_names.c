/* The records that have a name of their own go by it in C as well, without "struct". */
#include <tq/tq.h>

void take_records(tq_list*, tq_list_node*, ip_address*, netlink_msg*, notify_param*,
                  uci_config_ctx*, dictionary*);
