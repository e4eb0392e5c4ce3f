#include "tq/list.h"

#include <cstddef>
#include <cstdlib>

// The check in tq_list_init holds in release builds too.
#undef NDEBUG
#include <cassert>

namespace {

static_assert(sizeof(tq_list_node) == 3 * sizeof(void*));
static_assert(offsetof(tq_list_node, next) == sizeof(void*));
static_assert(offsetof(tq_list_node, data) == 2 * sizeof(void*));
static_assert(offsetof(tq_list, tail) == sizeof(void*));

tq_list_node* find(const tq_list& list, uintptr_t data) {
    tq_list_node* node = list.head;
    while (node && node->data != data)
        node = node->next;
    return node;
}

// What points forward to the node: the one in front of it, or the list.
tq_list_node*& link_to(tq_list& list, const tq_list_node& node) {
    return node.prev ? node.prev->next : list.head;
}

// What points back to the node: the one behind it, or the list.
tq_list_node*& link_back_to(tq_list& list, const tq_list_node& node) {
    return node.next ? node.next->prev : list.tail;
}

}  // namespace

int tq_list_init(tq_list* list) {
    // Written out, because the text is known to those who read the devices' crash logs.
    if (!list) __assert_fail("list != ((void *)0)", "tq_list", 22, "tq_list_init");
    *list = {};
    return 0;
}

int tq_list_add(tq_list* list, uintptr_t data) {
    return tq_list_ins(list, nullptr, data);
}

int tq_list_ins(tq_list* list, tq_list_node* before, uintptr_t data) {
    if (!list) return -1;
    auto* node = static_cast<tq_list_node*>(malloc(sizeof(tq_list_node)));
    if (!node) return -1;
    *node = {.prev = before ? before->prev : list->tail, .next = before, .data = data};
    link_to(*list, *node) = node;
    link_back_to(*list, *node) = node;
    return 0;
}

int tq_list_rmv(tq_list* list, uintptr_t data) {
    return list ? tq_list_rmv_node(list, find(*list, data)) : -1;
}

int tq_list_rmv_node(tq_list* list, tq_list_node* node) {
    if (!list || !node) return -1;
    link_to(*list, *node) = node->next;
    link_back_to(*list, *node) = node->prev;
    free(node);
    return 0;
}

int tq_list_deinit(tq_list* list) {
    if (!list) return -1;
    tq_list_node* node = list->head;
    while (node) {
        tq_list_node* next = node->next;
        free(node);
        node = next;
    }
    *list = {};
    return 0;
}

tq_list_node* tq_list_first(const tq_list* list) {
    return list ? list->head : nullptr;
}

tq_list_node* tq_list_next(const tq_list* /*list*/, const tq_list_node* node) {
    return node ? node->next : nullptr;
}
