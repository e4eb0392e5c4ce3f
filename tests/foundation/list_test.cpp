// list_test.cpp - the list container: links, order, ownership and failures.
#include "tq/list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "support/faults.h"
#include "support/random.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq_test::faults::Fail;

// The values from head to tail; the links back must tell the same.
std::vector<uintptr_t> values(const tq_list& list) {
    std::vector<uintptr_t> forward;
    for (const tq_list_node* node = list.head; node; node = node->next)
        forward.push_back(node->data);
    std::vector<uintptr_t> backward;
    for (const tq_list_node* node = list.tail; node; node = node->prev)
        backward.push_back(node->data);
    std::ranges::reverse(backward);
    EXPECT_EQ(backward, forward);
    return forward;
}

class List : public testing::Test {
  protected:
    List() { tq_list_init(&list); }
    ~List() override { tq_list_deinit(&list); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    void add(const std::vector<uintptr_t>& added) {
        for (const uintptr_t data : added)
            ASSERT_EQ(tq_list_add(&list, data), 0);
    }

    tq_list list;
};

TEST_F(List, StartsEmptyWhateverWasThere) {
    tq_list_node node = {};
    tq_list used = {&node, &node};
    EXPECT_EQ(tq_list_init(&used), 0);
    EXPECT_EQ(used.head, nullptr);
    EXPECT_EQ(used.tail, nullptr);
}

TEST(ListInit, StopsTheProcessForANullList) {
    EXPECT_DEATH(tq_list_init(nullptr),
                 testing::ContainsRegex(
                     R"(tq_list:22: tq_list_init: Assertion `list != \(\(void \*\)0\)' failed)"));
}

TEST_F(List, AppendsAtTheTail) {
    add({1, 2, 3});
    EXPECT_THAT(values(list), ElementsAre(1, 2, 3));
    EXPECT_EQ(list.head->prev, nullptr);
    EXPECT_EQ(list.tail->next, nullptr);
}

TEST_F(List, HoldsTheLargestValueAndPointers) {
    add({UINTPTR_MAX, reinterpret_cast<uintptr_t>(&list), 0});
    EXPECT_THAT(values(list), ElementsAre(UINTPTR_MAX, reinterpret_cast<uintptr_t>(&list), 0));
}

TEST_F(List, ClosesTheGapWhereAMiddleNodeWas) {
    add({1, 2, 3});
    EXPECT_EQ(tq_list_rmv(&list, 2), 0);
    EXPECT_EQ(list.head->data, 1U);
    EXPECT_EQ(list.tail->data, 3U);
    EXPECT_EQ(list.head->next->data, 3U);
    EXPECT_EQ(list.tail->prev->data, 1U);
}

TEST_F(List, MovesHeadAndTailWhenTheyAreRemoved) {
    add({1, 2, 3});
    EXPECT_EQ(tq_list_rmv(&list, 1), 0);
    EXPECT_THAT(values(list), ElementsAre(2, 3));
    EXPECT_EQ(tq_list_rmv(&list, 3), 0);
    EXPECT_THAT(values(list), ElementsAre(2));
    EXPECT_EQ(tq_list_rmv(&list, 2), 0);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
}

TEST_F(List, RemovesTheFirstOfEqualValuesOnly) {
    add({7, 5, 7});
    const tq_list_node* last = list.tail;
    EXPECT_EQ(tq_list_rmv(&list, 7), 0);
    EXPECT_THAT(values(list), ElementsAre(5, 7));
    EXPECT_EQ(list.tail, last);
}

TEST_F(List, RefusesToRemoveAnAbsentValue) {
    EXPECT_EQ(tq_list_rmv(&list, 1), -1);
    add({1, 2});
    EXPECT_EQ(tq_list_rmv(&list, 3), -1);
    EXPECT_THAT(values(list), ElementsAre(1, 2));
}

TEST_F(List, InsertsInFrontOfANode) {
    add({1, 3});
    EXPECT_EQ(tq_list_ins(&list, list.tail, 2), 0);
    EXPECT_EQ(tq_list_ins(&list, list.head, 0), 0);
    EXPECT_THAT(values(list), ElementsAre(0, 1, 2, 3));
}

TEST_F(List, InsertsAtTheTailWhereNoNodeIsGiven) {
    EXPECT_EQ(tq_list_ins(&list, nullptr, 1), 0);
    EXPECT_EQ(list.head, list.tail);
    EXPECT_THAT(values(list), ElementsAre(1));
    EXPECT_EQ(tq_list_ins(&list, nullptr, 2), 0);
    EXPECT_THAT(values(list), ElementsAre(1, 2));
}

TEST_F(List, RemovesTheNodeThatIsNamed) {
    add({7, 7, 7});
    tq_list_node* first = list.head;
    tq_list_node* middle = first->next;
    EXPECT_EQ(tq_list_rmv_node(&list, middle), 0);
    EXPECT_EQ(list.head, first);
    EXPECT_THAT(values(list), ElementsAre(7, 7));
}

TEST_F(List, IsEmptyAndUsableAfterDeinit) {
    add({1, 2, 3});
    EXPECT_EQ(tq_list_deinit(&list), 0);
    EXPECT_THAT(values(list), IsEmpty());
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(tq_list_deinit(&list), 0);
    add({4});
    EXPECT_THAT(values(list), ElementsAre(4));
}

TEST_F(List, IsWalkedByFirstAndNext) {
    EXPECT_EQ(tq_list_first(&list), nullptr);
    add({1, 2});
    tq_list_node* node = tq_list_first(&list);
    ASSERT_EQ(node, list.head);
    node = tq_list_next(nullptr, node);
    ASSERT_EQ(node, list.tail);
    EXPECT_EQ(tq_list_next(&list, node), nullptr);
}

TEST_F(List, MayBeEmptiedWhileItIsWalked) {
    add({1, 2, 3, 4});
    tq_list_node* next = nullptr;
    for (tq_list_node* node = tq_list_first(&list); node; node = next) {
        next = tq_list_next(&list, node);
        if (node->data % 2 == 0) {
            EXPECT_EQ(tq_list_rmv_node(&list, node), 0);
        }
    }
    EXPECT_THAT(values(list), ElementsAre(1, 3));
}

TEST(ListArguments, AreRefusedWhenNull) {
    tq_list list = {};
    EXPECT_EQ(tq_list_add(nullptr, 1), -1);
    EXPECT_EQ(tq_list_ins(nullptr, nullptr, 1), -1);
    EXPECT_EQ(tq_list_rmv(nullptr, 1), -1);
    EXPECT_EQ(tq_list_rmv_node(nullptr, nullptr), -1);
    EXPECT_EQ(tq_list_rmv_node(&list, nullptr), -1);
    EXPECT_EQ(tq_list_deinit(nullptr), -1);
    EXPECT_EQ(tq_list_first(nullptr), nullptr);
    EXPECT_EQ(tq_list_next(&list, nullptr), nullptr);
}

TEST_F(List, IsUnchangedWhenMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    add({1, 2});
    {
        const Fail fail("malloc", 1, ENOMEM);
        EXPECT_EQ(tq_list_add(&list, 3), -1);
        EXPECT_TRUE(fail.fired());
    }
    {
        const Fail fail("malloc", 1, ENOMEM);
        EXPECT_EQ(tq_list_ins(&list, list.tail, 3), -1);
        EXPECT_TRUE(fail.fired());
    }
    EXPECT_THAT(values(list), ElementsAre(1, 2));
}

TEST_F(List, AllocatesOncePerNode) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    tq_test::faults::reset();
    tq_list_add(&list, 1);
    tq_list_ins(&list, list.head, 2);
    tq_list_rmv(&list, 1);
    EXPECT_EQ(tq_test::faults::count("malloc"), 2U);
}

// Ten thousand random steps beside a vector.
TEST_F(List, DoesWhatAVectorDoes) {
    std::mt19937 random = tq_test::seeded(1);
    std::vector<uintptr_t> expected;
    for (int step = 0; step < 10000; step++) {
        const uintptr_t data = random() % 20;
        if (random() % 2 == 0 && expected.size() < 40) {
            const size_t at = random() % (expected.size() + 1);
            tq_list_node* before = list.head;
            for (size_t i = 0; i < at; i++)
                before = before->next;
            ASSERT_EQ(tq_list_ins(&list, before, data), 0);
            expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(at), data);
            continue;
        }
        const auto found = std::ranges::find(expected, data);
        ASSERT_EQ(tq_list_rmv(&list, data), found == expected.end() ? -1 : 0);
        if (found != expected.end()) expected.erase(found);
        ASSERT_EQ(values(list), expected);
    }
}

}  // namespace
