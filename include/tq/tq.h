/* tq.h - all of libtq's public headers. */
#ifndef TQ_TQ_H
#define TQ_TQ_H

#include <tq/board.h>
#include <tq/bus.h>
#include <tq/bwctl.h>
#include <tq/command.h>
#include <tq/dictionary.h>
#include <tq/eloop.h>
#include <tq/fm.h>
#include <tq/image_switch.h>
#include <tq/iniparser.h>
#include <tq/ip_address.h>
#include <tq/ipc.h>
#include <tq/list.h>
#include <tq/mac.h>
#include <tq/mtd.h>
#include <tq/netif.h>
#include <tq/netlink.h>
#include <tq/process.h>
#include <tq/reboot_cause.h>
#include <tq/redboot.h>
#include <tq/status_file.h>
#include <tq/syslog_config.h>
#include <tq/sysstat.h>
#include <tq/thd_eloop.h>
#include <tq/types.h>
#include <tq/uci_option.h>
#include <tq/uci_path.h>
#include <tq/uci_session.h>
#include <tq/util.h>
#include <tq/wifi.h>

#endif /* TQ_TQ_H */
