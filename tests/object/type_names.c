/* The records that have a name of their own go by it in C as well, without "struct". */
#include <tq/bus.h>
#include <tq/ip_address.h>
#include <tq/list.h>
#include <tq/netlink.h>
#include <tq/reboot_cause.h>
#include <tq/sysstat.h>
#include <tq/uci_session.h>

void take_records(tq_list*, tq_list_node*, ip_address*, netlink_msg*, notify_param*,
                  uci_config_ctx*, reboot_cause_statistic*, reboot_cause_header*,
                  reboot_cause_record*, reboot_panic_buffer*, if_stats*);
