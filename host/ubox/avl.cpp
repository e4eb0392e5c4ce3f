// avl.cpp - balanced trees: every node's sides differ in height by one at most.
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blob.h>

#include <algorithm>
#include <cstring>

namespace {

avl_node* from_list(list_head* entry) {
    return container_of(entry, avl_node, list);
}

// Where a key is, or would be, in the tree: the last node on the way, and on which side of it.
struct Place {
    avl_node* node;
    int side;  // below, at, or above 0: left, there, right
};

Place find_place(const avl_tree* tree, const void* key) {
    Place place{tree->root, 0};
    for (avl_node* next = tree->root; next;) {
        place.node = next;
        place.side = tree->comp(key, next->key, tree->cmp_ptr);
        if (place.side == 0) break;
        next = place.side < 0 ? next->left : next->right;
    }
    return place;
}

// The nodes of one key stand together in the ring; only the first of them is in the tree.
avl_node* last_of_key(const avl_tree* tree, avl_node* leader) {
    list_head* entry = &leader->list;
    while (entry->next != &tree->list_head && !from_list(entry->next)->leader) {
        entry = entry->next;
    }
    return from_list(entry);
}

// The tree's node before or behind a leader, or null.
avl_node* next_leader(const avl_tree* tree, avl_node* leader) {
    list_head* entry = last_of_key(tree, leader)->list.next;
    return entry == &tree->list_head ? nullptr : from_list(entry);
}

avl_node* previous_leader(const avl_tree* tree, avl_node* leader) {
    list_head* entry = leader->list.prev;
    while (entry != &tree->list_head && !from_list(entry)->leader) {
        entry = entry->prev;
    }
    return entry == &tree->list_head ? nullptr : from_list(entry);
}

// Puts a node, or nothing, where another hangs.
void replace_child(avl_tree* tree, avl_node* parent, const avl_node* old, avl_node* child) {
    if (!parent) {
        tree->root = child;
    } else if (parent->left == old) {
        parent->left = child;
    } else {
        parent->right = child;
    }
    if (child) child->parent = parent;
}

void rotate_left(avl_tree* tree, avl_node* node) {
    avl_node* up = node->right;
    replace_child(tree, node->parent, node, up);
    node->right = up->left;
    if (node->right) node->right->parent = node;
    up->left = node;
    node->parent = up;
    node->balance = static_cast<signed char>(node->balance - 1 - std::max<int>(up->balance, 0));
    up->balance = static_cast<signed char>(up->balance - 1 + std::min<int>(node->balance, 0));
}

void rotate_right(avl_tree* tree, avl_node* node) {
    avl_node* up = node->left;
    replace_child(tree, node->parent, node, up);
    node->left = up->right;
    if (node->left) node->left->parent = node;
    up->right = node;
    node->parent = up;
    node->balance = static_cast<signed char>(node->balance + 1 - std::min<int>(up->balance, 0));
    up->balance = static_cast<signed char>(up->balance + 1 + std::max<int>(node->balance, 0));
}

// Rights a node whose sides differ by two; the result is what stands in its place.
avl_node* rebalance(avl_tree* tree, avl_node* node) {
    if (node->balance > 0) {
        if (node->right->balance < 0) rotate_right(tree, node->right);
        rotate_left(tree, node);
    } else {
        if (node->left->balance > 0) rotate_left(tree, node->left);
        rotate_right(tree, node);
    }
    return node->parent;
}

// One side of the node's parent has grown by one.
void after_growth(avl_tree* tree, avl_node* node) {
    for (avl_node* parent = node->parent; parent; node = parent, parent = node->parent) {
        parent->balance =
            static_cast<signed char>(parent->balance + (parent->left == node ? -1 : 1));
        if (parent->balance == 0) return;
        if (parent->balance == 2 || parent->balance == -2) {
            rebalance(tree, parent);
            return;
        }
    }
}

// The left or right side of a node has shrunk by one.
void after_shrinking(avl_tree* tree, avl_node* parent, bool left) {
    while (parent) {
        parent->balance = static_cast<signed char>(parent->balance + (left ? 1 : -1));
        if (parent->balance == 1 || parent->balance == -1) return;
        avl_node* top = parent->balance == 0 ? parent : rebalance(tree, parent);
        if (top->balance != 0) return;
        parent = top->parent;
        left = parent && parent->left == top;
    }
}

// Takes a node with one child at most out of the tree.
void unhang(avl_tree* tree, avl_node* node) {
    avl_node* child = node->left ? node->left : node->right;
    avl_node* parent = node->parent;
    const bool left = parent && parent->left == node;
    replace_child(tree, parent, node, child);
    after_shrinking(tree, parent, left);
}

// Hangs a node where another is in the tree.
void take_place(avl_tree* tree, const avl_node* old, avl_node* successor) {
    successor->left = old->left;
    successor->right = old->right;
    successor->balance = old->balance;
    replace_child(tree, old->parent, old, successor);
    if (successor->left) successor->left->parent = successor;
    if (successor->right) successor->right->parent = successor;
}

void remove_from_tree(avl_tree* tree, avl_node* node) {
    if (!node->left || !node->right) {
        unhang(tree, node);
        return;
    }
    avl_node* heir = node->right;
    while (heir->left) {
        heir = heir->left;
    }
    unhang(tree, heir);
    take_place(tree, node, heir);
}

// The later nodes of a key follow the first in the ring.
bool followed_by_same_key(const avl_tree* tree, const avl_node* node) {
    return node->list.next != &tree->list_head && !from_list(node->list.next)->leader;
}

}  // namespace

void avl_init(avl_tree* tree, avl_tree_comp comp, bool allow_dups, void* ptr) {
    *tree = {};
    INIT_LIST_HEAD(&tree->list_head);
    tree->comp = comp;
    tree->allow_dups = allow_dups;
    tree->cmp_ptr = ptr;
}

avl_node* avl_find(const avl_tree* tree, const void* key) {
    const Place place = find_place(tree, key);
    return place.side == 0 ? place.node : nullptr;
}

avl_node* avl_find_greaterequal(const avl_tree* tree, const void* key) {
    const Place place = find_place(tree, key);
    return place.side > 0 ? next_leader(tree, place.node) : place.node;
}

avl_node* avl_find_lessequal(const avl_tree* tree, const void* key) {
    const Place place = find_place(tree, key);
    return place.side < 0 ? previous_leader(tree, place.node) : place.node;
}

int avl_insert(avl_tree* tree, avl_node* node) {
    const Place place = find_place(tree, node->key);
    if (place.node && place.side == 0 && !tree->allow_dups) return -1;

    node->parent = place.node;
    node->left = nullptr;
    node->right = nullptr;
    node->balance = 0;
    node->leader = !place.node || place.side != 0;
    tree->count++;
    if (!place.node) {
        tree->root = node;
        list_add(&node->list, &tree->list_head);
        return 0;
    }
    if (place.side < 0) {
        place.node->left = node;
        list_add_tail(&node->list, &place.node->list);
    } else {
        list_add(&node->list, &last_of_key(tree, place.node)->list);
        if (place.side > 0) place.node->right = node;
    }
    if (node->leader) after_growth(tree, node);
    return 0;
}

void avl_delete(avl_tree* tree, avl_node* node) {
    tree->count--;
    if (!node->leader) {
        list_del(&node->list);
        return;
    }
    if (followed_by_same_key(tree, node)) {
        avl_node* heir = from_list(node->list.next);
        heir->leader = true;
        take_place(tree, node, heir);
    } else {
        remove_from_tree(tree, node);
    }
    list_del(&node->list);
}

int avl_strcmp(const void* k1, const void* k2, void* /*ptr*/) {
    return strcmp(static_cast<const char*>(k1), static_cast<const char*>(k2));
}

int avl_blobcmp(const void* k1, const void* k2, void* /*ptr*/) {
    const auto* first = static_cast<const blob_attr*>(k1);
    const auto* second = static_cast<const blob_attr*>(k2);
    return memcmp(first, second, std::min(blob_raw_len(first), blob_raw_len(second)));
}
