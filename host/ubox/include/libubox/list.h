/*
 * list.h - rings of nodes that live inside the objects they link. A ring's head is a node of its
 * own; an empty ring points to itself.
 *
 * Removing the current element is safe in the _safe walks only.
 */
#ifndef LIBUBOX_LIST_H
#define LIBUBOX_LIST_H

#include <stdbool.h>
#include <stddef.h>

#ifndef container_of
#define container_of(ptr, type, member) ((type*)((char*)(ptr)-offsetof(type, member)))
#endif

#ifndef container_of_safe
#define container_of_safe(ptr, type, member) ((ptr) ? container_of(ptr, type, member) : (type*)NULL)
#endif

struct list_head {
    struct list_head* next;
    struct list_head* prev;
};

/* <sys/queue.h> has the name as well. */
#undef LIST_HEAD
#define LIST_HEAD_INIT(name) \
    { &(name), &(name) }
#define LIST_HEAD(name) struct list_head name = LIST_HEAD_INIT(name)

static inline void INIT_LIST_HEAD(struct list_head* list) {
    list->prev = list;
    list->next = list;
}

static inline bool list_empty(const struct list_head* head) {
    return head->next == head;
}

static inline bool list_is_first(const struct list_head* list, const struct list_head* head) {
    return head->next == list;
}

static inline bool list_is_last(const struct list_head* list, const struct list_head* head) {
    return head->prev == list;
}

/* NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): fixed names */

static inline void _list_add(struct list_head* entry, struct list_head* prev,
                             struct list_head* next) {
    entry->prev = prev;
    entry->next = next;
    prev->next = entry;
    next->prev = entry;
}

static inline void _list_del(struct list_head* entry) {
    /* NOLINTNEXTLINE(clang-analyzer-unix.Malloc): what was freed before has left the ring */
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
}

/* NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp) */

/* In front of all others, or behind them. */
static inline void list_add(struct list_head* entry, struct list_head* head) {
    _list_add(entry, head, head->next);
}

static inline void list_add_tail(struct list_head* entry, struct list_head* head) {
    _list_add(entry, head->prev, head);
}

/* The node's own pointers are NULL afterwards; with _init it is an empty ring. */
static inline void list_del(struct list_head* entry) {
    _list_del(entry);
    entry->prev = NULL;
    entry->next = NULL;
}

static inline void list_del_init(struct list_head* entry) {
    _list_del(entry);
    INIT_LIST_HEAD(entry);
}

static inline void list_move(struct list_head* entry, struct list_head* head) {
    _list_del(entry);
    list_add(entry, head);
}

static inline void list_move_tail(struct list_head* entry, struct list_head* head) {
    _list_del(entry);
    list_add_tail(entry, head);
}

/* Puts all of list's nodes between two neighbours; list itself keeps its pointers. */
/* NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): a fixed name */
static inline void _list_splice(const struct list_head* list, struct list_head* prev,
                                struct list_head* next) {
    if (list_empty(list)) return;
    prev->next = list->next;
    list->next->prev = prev;
    next->prev = list->prev;
    list->prev->next = next;
}

static inline void list_splice(const struct list_head* list, struct list_head* head) {
    _list_splice(list, head, head->next);
}

static inline void list_splice_tail(struct list_head* list, struct list_head* head) {
    _list_splice(list, head->prev, head);
}

static inline void list_splice_init(struct list_head* list, struct list_head* head) {
    list_splice(list, head);
    INIT_LIST_HEAD(list);
}

static inline void list_splice_tail_init(struct list_head* list, struct list_head* head) {
    list_splice_tail(list, head);
    INIT_LIST_HEAD(list);
}

#define list_entry(ptr, type, field) container_of(ptr, type, field)
#define list_first_entry(head, type, field) list_entry((head)->next, type, field)
#define list_last_entry(head, type, field) list_entry((head)->prev, type, field)
#define list_next_entry(pos, field) list_entry((pos)->field.next, __typeof__(*(pos)), field)
#define list_prev_entry(pos, field) list_entry((pos)->field.prev, __typeof__(*(pos)), field)
#define list_entry_is_h(pos, head, field) (&(pos)->field == (head))

/* Over the nodes. */
#define list_for_each(pos, head) for (pos = (head)->next; pos != (head); pos = pos->next)
#define list_for_each_prev(pos, head) for (pos = (head)->prev; pos != (head); pos = pos->prev)
#define list_for_each_safe(pos, after, head) \
    for (pos = (head)->next, after = pos->next; pos != (head); pos = after, after = pos->next)
#define list_for_each_prev_safe(pos, after, head) \
    for (pos = (head)->prev, after = pos->prev; pos != (head); pos = after, after = pos->prev)

/* Over what the nodes are in. */
#define list_for_each_entry(pos, head, field)                   \
    for (pos = list_first_entry(head, __typeof__(*pos), field); \
         !list_entry_is_h(pos, head, field); pos = list_next_entry(pos, field))
#define list_for_each_entry_reverse(pos, head, field)                                              \
    for (pos = list_last_entry(head, __typeof__(*pos), field); !list_entry_is_h(pos, head, field); \
         pos = list_prev_entry(pos, field))
#define list_for_each_entry_continue(pos, head, field)                          \
    for (pos = list_next_entry(pos, field); !list_entry_is_h(pos, head, field); \
         pos = list_next_entry(pos, field))
#define list_for_each_entry_continue_reverse(pos, head, field)                  \
    for (pos = list_prev_entry(pos, field); !list_entry_is_h(pos, head, field); \
         pos = list_prev_entry(pos, field))
#define list_for_each_entry_safe(pos, after, head, field)       \
    for (pos = list_first_entry(head, __typeof__(*pos), field), \
        after = list_next_entry(pos, field);                    \
         !list_entry_is_h(pos, head, field); pos = after, after = list_next_entry(after, field))

#endif
