/*
 * avl.h - balanced trees of nodes that live inside the objects they order. The nodes are also a
 * ring in key order, which the walks follow.
 *
 * A walk over an empty tree ends at once. Removing the current element is safe in the _safe walks
 * only.
 */
#ifndef LIBUBOX_AVL_H
#define LIBUBOX_AVL_H

#include <stdbool.h>
#include <stddef.h>

#include "list.h"
#include "utils.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The caller sets key; the rest belongs to the tree. */
struct avl_node {
    struct list_head list;
    struct avl_node* parent;
    struct avl_node* left;
    struct avl_node* right;
    const void* key;
    signed char balance; /* height of the right side less that of the left */
    bool leader;         /* in the tree; false for a later node of the same key, only in the ring */
};

/* Below, at or above 0 as k1 is before, equal to or behind k2. ptr: the tree's cmp_ptr. */
typedef int (*avl_tree_comp)(const void* k1, const void* k2, void* ptr);

struct avl_tree {
    struct list_head list_head;
    struct avl_node* root;
    unsigned int count;
    bool allow_dups;
    avl_tree_comp comp;
    void* cmp_ptr;
};

#define AVL_TREE_INIT(name, compare, duplicates, pointer)                        \
    {                                                                            \
        .list_head = LIST_HEAD_INIT((name).list_head), .root = NULL, .count = 0, \
        .allow_dups = (duplicates), .comp = (compare), .cmp_ptr = (pointer)      \
    }
#define AVL_TREE(name, compare, duplicates, pointer) \
    struct avl_tree name = AVL_TREE_INIT(name, compare, duplicates, pointer)

UBOX_EXPORT void avl_init(struct avl_tree* tree, avl_tree_comp comp, bool allow_dups, void* ptr);

/* The first node with the key, or NULL. */
UBOX_EXPORT struct avl_node* avl_find(const struct avl_tree* tree, const void* key);

/* The first node with the smallest key that is not below, and the first with the largest not above.
 */
UBOX_EXPORT struct avl_node* avl_find_greaterequal(const struct avl_tree* tree, const void* key);
UBOX_EXPORT struct avl_node* avl_find_lessequal(const struct avl_tree* tree, const void* key);

/* 0, or -1 where the key is there and duplicates are not allowed. Duplicates keep their order. */
UBOX_EXPORT int avl_insert(struct avl_tree* tree, struct avl_node* node);

/* The node must be in the tree. */
UBOX_EXPORT void avl_delete(struct avl_tree* tree, struct avl_node* node);

static inline bool avl_is_first(struct avl_tree* tree, struct avl_node* node) {
    return tree->list_head.next == &node->list;
}

static inline bool avl_is_last(struct avl_tree* tree, struct avl_node* node) {
    return tree->list_head.prev == &node->list;
}

static inline bool avl_is_empty(struct avl_tree* tree) {
    return tree->count == 0;
}

/* What a node is in, or NULL. */
#define avl_found(node, element, member) \
    ((__typeof__(*(element))*)avl_element_or_null(node, offsetof(__typeof__(*(element)), member)))
static inline void* avl_element_or_null(struct avl_node* node, size_t offset) {
    return node ? (char*)node - offset : NULL;
}

/* As the finders above; element only names the type. */
#define avl_find_element(tree, key, element, member) avl_found(avl_find(tree, key), element, member)
#define avl_find_le_element(tree, key, element, member) \
    avl_found(avl_find_lessequal(tree, key), element, member)
#define avl_find_ge_element(tree, key, element, member) \
    avl_found(avl_find_greaterequal(tree, key), element, member)

/* Not for an empty tree. */
#define avl_first_element(tree, element, member) \
    container_of((tree)->list_head.next, __typeof__(*(element)), member.list)
#define avl_last_element(tree, element, member) \
    container_of((tree)->list_head.prev, __typeof__(*(element)), member.list)

/* Not for the last, or the first, element. */
#define avl_next_element(element, member) \
    container_of((element)->member.list.next, __typeof__(*(element)), member.list)
#define avl_prev_element(element, member) \
    container_of((element)->member.list.prev, __typeof__(*(element)), member.list)

#define avl_for_element_range(first, last, element, member)                      \
    for (element = (first); (element)->member.list.prev != &(last)->member.list; \
         element = avl_next_element(element, member))
#define avl_for_element_range_reverse(first, last, element, member)              \
    for (element = (last); (element)->member.list.next != &(first)->member.list; \
         element = avl_prev_element(element, member))
#define avl_for_element_range_safe(first, last, element, member, after) \
    for (element = (first), after = avl_next_element(element, member);  \
         (element)->member.list.prev != &(last)->member.list;           \
         element = after, after = avl_next_element(after, member))

#define avl_for_each_element(tree, element, member)                 \
    avl_for_element_range(avl_first_element(tree, element, member), \
                          avl_last_element(tree, element, member), element, member)
#define avl_for_each_element_reverse(tree, element, member)                 \
    avl_for_element_range_reverse(avl_first_element(tree, element, member), \
                                  avl_last_element(tree, element, member), element, member)
#define avl_for_each_element_safe(tree, element, member, after) \
    for (element = avl_first_element(tree, element, member),    \
        after = avl_next_element(element, member);              \
         &(element)->member.list != &(tree)->list_head;         \
         element = after, after = avl_next_element(after, member))
#define avl_for_element_to_last(tree, first, element, member) \
    avl_for_element_range(first, avl_last_element(tree, element, member), element, member)
#define avl_for_first_to_element(tree, last, element, member) \
    avl_for_element_range(avl_first_element(tree, element, member), last, element, member)

/* Empties the tree while it walks: the body frees the elements, and must not leave the loop. */
#define avl_remove_all_elements(tree, element, member, after)                          \
    for (element = avl_first_element(tree, element, member),                           \
        after = avl_next_element(element, member), INIT_LIST_HEAD(&(tree)->list_head), \
        (tree)->root = NULL;                                                           \
         (tree)->count > 0;                                                            \
         element = after, after = avl_next_element(after, member), (tree)->count--)

#ifdef __cplusplus
}
#endif

#endif
