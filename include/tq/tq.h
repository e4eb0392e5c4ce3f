/* tq.h - all of libtq's public headers. */
#ifndef TQ_TQ_H
#define TQ_TQ_H

#include <tq/command.h>
#include <tq/netif.h>
#include <tq/ip_address.h>
#include <tq/process.h>
#include <tq/status_file.h>
#include <tq/syslog_config.h>
#include <tq/types.h>
#include <tq/uci_path.h>

#endif /* TQ_TQ_H */
