/* list.h - a doubly linked list of values, each a number or a pointer of the caller's.
 *
 * The list allocates and frees its nodes, one heap block each; the values are the caller's, and the
 * list neither frees nor interprets them. Its owner embeds a tq_list and guards it where threads
 * share it: there is no lock here.
 *
 * Nothing is logged. A null list is refused silently, except by tq_list_init. Which list a node
 * belongs to is not checked, nor whether it has been removed already.
 *
 *     for (node = tq_list_first(&list); node; node = next) {
 *         next = tq_list_next(&list, node);   // first, where the node may be removed
 *         ...
 *     }
 */
#ifndef TQ_LIST_H
#define TQ_LIST_H

#include <tq/types.h>

TQ_BEGIN_DECLS

/* A value in its place; made and freed by the list. */
typedef struct tq_list_node {
    struct tq_list_node *prev; /* null in the first node */
    struct tq_list_node *next; /* null in the last node */
    uintptr_t data;            /* the caller's value */
} tq_list_node;

/* A list; tq_list_init comes first. */
typedef struct tq_list {
    tq_list_node *head; /* null when the list is empty */
    tq_list_node *tail; /* null when the list is empty */
} tq_list;

/* Makes the list empty. What it held before is forgotten, not freed.
 * 0. A null list is a programming error: the process aborts with the C library's message for the
 * failed assertion "list != ((void *)0)", also in builds without assertions. */
TQ_API int tq_list_init(tq_list *list);

/* Appends data at the tail.
 * 0; -1 with the list unchanged when memory runs out. */
TQ_API int tq_list_add(tq_list *list, uintptr_t data);

/* Inserts data in front of the node before, or at the tail where before is null.
 * 0; -1 with the list unchanged when memory runs out. */
TQ_API int tq_list_ins(tq_list *list, tq_list_node *before, uintptr_t data);

/* Removes and frees the first node, from the head, that holds data.
 * 0; -1 with the list unchanged when no node does. */
TQ_API int tq_list_rmv(tq_list *list, uintptr_t data);

/* Removes and frees the node, which must be one of this list's.
 * 0; -1 for a null node. */
TQ_API int tq_list_rmv_node(tq_list *list, tq_list_node *node);

/* Removes and frees every node, head first; the empty list may be used again.
 * 0. */
TQ_API int tq_list_deinit(tq_list *list);

/* The head, null when the list is empty. */
TQ_API tq_list_node *tq_list_first(const tq_list *list);

/* The node behind this one, null at the end and for a null node. The list is not looked at and may
 * be null. */
TQ_API tq_list_node *tq_list_next(const tq_list *list, const tq_list_node *node);

TQ_END_DECLS

#endif /* TQ_LIST_H */
