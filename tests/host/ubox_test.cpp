// ubox_test.cpp - libubox as the bus needs it: messages byte for byte and on hostile bytes, trees,
// rings, the loop.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;

class Blob {
  public:
    explicit Blob(int id = 0) { EXPECT_EQ(blob_buf_init(&buf_, id), 0); }
    ~Blob() { blob_buf_free(&buf_); }
    Blob(const Blob&) = delete;
    Blob& operator=(const Blob&) = delete;

    operator blob_buf*() { return &buf_; }  // NOLINT(google-explicit-constructor)
    blob_attr* head() const { return buf_.head; }
    std::string bytes() const {
        return {reinterpret_cast<const char*>(buf_.head), blob_pad_len(buf_.head)};
    }

  private:
    blob_buf buf_ = {};
};

std::string hex(const std::string& bytes) {
    static constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i++) {
        if (i && i % 4 == 0) text += ' ';
        text += kDigits[static_cast<unsigned char>(bytes[i]) >> 4];
        text += kDigits[static_cast<unsigned char>(bytes[i]) & 15];
    }
    return text;
}

// Bytes in a block of exactly their size, so that a read behind them is seen.
class Exact {
  public:
    explicit Exact(const std::string& bytes)
        : block_(new char[bytes.size() + 1]), size_(bytes.size()) {
        // One behind the beginning: nothing may rely on alignment.
        memcpy(data(), bytes.data(), size_);
    }
    char* data() { return block_.get() + 1; }
    blob_attr* attr() { return reinterpret_cast<blob_attr*>(data()); }
    size_t size() const { return size_; }

  private:
    std::unique_ptr<char[]> block_;
    size_t size_;
};

std::string sample_message() {
    Blob blob;
    blobmsg_add_string(blob, "name", "x");
    blobmsg_add_u32(blob, "val", 5);
    void* table = blobmsg_open_table(blob, "x");
    void* array = blobmsg_open_array(blob, "y");
    blobmsg_add_u32(blob, nullptr, 1);
    blobmsg_add_double(blob, nullptr, 2.5);
    blobmsg_add_string(blob, nullptr, "s");
    blobmsg_add_u8(blob, nullptr, 1);
    blobmsg_close_array(blob, array);
    blobmsg_close_table(blob, table);
    blobmsg_add_u64(blob, "big", 123456789012);
    blobmsg_add_u16(blob, "small", 7);
    return blob.bytes();
}

// ---- building ----

TEST(BlobmsgBuild, HasTheBytesOfTheWire) {
    EXPECT_EQ(hex(sample_message()),
              "0000008c 8300000e 00046e61 6d650000 78000000 85000010 00037661 6c000000 00000005 "
              "82000044 00017800 8100003c 00017900 8500000c 00000000 00000001 88000010 00000000 "
              "40040000 00000000 8300000a 00000000 73000000 87000009 00000000 01000000 84000014 "
              "00036269 67000000 0000001c be991a14 8600000e 0005736d 616c6c00 00070000");
}

TEST(BlobBuild, HasTheBytesOfTheWire) {
    Blob blob;
    blob_put_u32(blob, 3, 0xf408ab20);
    blob_put_string(blob, 4, "echo");
    blob_put_u8(blob, 9, 1);
    void* nest = blob_nest_start(blob, 7);
    blob_nest_end(blob, nest);
    EXPECT_EQ(hex(blob.bytes()),
              "00000024 03000008 f408ab20 04000009 6563686f 00000000 09000005 01000000 07000004");
}

TEST(BlobBuild, BeginsAnewWithoutWhatWasThere) {
    Blob blob;
    blob_put_u32(blob, 3, 1);
    ASSERT_EQ(blob_buf_init(blob, 5), 0);
    EXPECT_EQ(hex(blob.bytes()), "05000004");
}

TEST(BlobBuild, GrowsAsMuchAsItMustAndNoFurtherThanALengthCanSay) {
    Blob blob;
    const std::string part(65536, 'p');
    int parts = 0;
    while (blobmsg_add_string(blob, "part", part.c_str()) == 0) {
        parts++;
    }
    EXPECT_EQ(parts, 255);
    EXPECT_LE(blob_raw_len(blob.head()), BLOB_ATTR_LEN_MASK);
    size_t rem = 0;
    blob_attr* element = nullptr;
    int found = 0;
    blobmsg_for_each_attr(element, blob.head(), rem) {
        ASSERT_TRUE(blobmsg_check_attr_len(element, true, rem));
        ASSERT_EQ(part, blobmsg_get_string(element));
        found++;
    }
    EXPECT_EQ(found, parts);
}

TEST(BlobBuild, GrowsByNothingThatNoMessageCanHave) {
    Blob blob;
    EXPECT_FALSE(blob_buf_grow(blob, BLOB_ATTR_LEN_MASK));
    EXPECT_FALSE(blob_buf_grow(blob, std::numeric_limits<int>::max()));
    EXPECT_EQ(hex(blob.bytes()), "00000004");
}

// What stood there before does not leave the process with the message.
TEST(BlobBuild, FillsUpWithZeros) {
    Blob blob;
    blob_put_string(blob, 4, "secrets");
    ASSERT_EQ(blob_buf_init(blob, 0), 0);
    blob_put_u8(blob, 9, 1);
    EXPECT_EQ(hex(blob.bytes()), "0000000c 09000005 01000000");
}

TEST(BlobBuild, TakesAnAttributeAsItIs) {
    Blob inner(7);
    blob_put_u32(inner, 3, 9);
    Blob outer;
    ASSERT_NE(blob_put_raw(outer, inner.head(), static_cast<unsigned>(blob_raw_len(inner.head()))),
              nullptr);
    EXPECT_EQ(hex(outer.bytes()), "00000010 0700000c 03000008 00000009");
}

TEST(BlobmsgBuild, WritesAStringInPlace) {
    Blob blob;
    auto* text = static_cast<char*>(blobmsg_alloc_string_buffer(blob, "s", 100));
    ASSERT_NE(text, nullptr);
    strcpy(text, "abc");
    constexpr unsigned int kMost = std::numeric_limits<unsigned int>::max();
    for (const unsigned int size : {kMost, kMost - 99, 0x01000000U})
        EXPECT_EQ(blobmsg_realloc_string_buffer(blob, size), nullptr);
    text = static_cast<char*>(blobmsg_realloc_string_buffer(blob, 5000));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "abc");
    memset(text, 'z', 4000);
    text[4000] = '\0';
    blobmsg_add_string_buffer(blob);
    EXPECT_EQ(blobmsg_printf(blob, "p", "%d-%s", 7, "x"), 3);

    blob_attr* found[2];
    static constexpr blobmsg_policy kPolicy[] = {{"s", BLOBMSG_TYPE_STRING},
                                                 {"p", BLOBMSG_TYPE_STRING}};
    ASSERT_EQ(blobmsg_parse_attr(kPolicy, 2, found, blob.head()), 0);
    ASSERT_TRUE(found[0] && found[1]);
    EXPECT_EQ(std::string(4000, 'z'), blobmsg_get_string(found[0]));
    EXPECT_STREQ(blobmsg_get_string(found[1]), "7-x");
}

TEST(BlobmsgBuild, CopiesAnElement) {
    Blob source;
    blobmsg_add_u32(source, "n", 3);
    Blob copy;
    ASSERT_EQ(blobmsg_add_blob(copy, static_cast<blob_attr*>(blob_data(source.head()))), 0);
    EXPECT_EQ(copy.bytes(), source.bytes());
    EXPECT_TRUE(blob_attr_equal(copy.head(), source.head()));
    EXPECT_FALSE(blob_attr_equal(nullptr, source.head()));
    blob_attr* duplicate = blob_memdup(copy.head());
    EXPECT_TRUE(blob_attr_equal(duplicate, source.head()));
    free(duplicate);
}

// ---- reading ----

enum { kName, kVal, kX, kBig, kSmall, kAbsent, kCount };
constexpr blobmsg_policy kPolicy[kCount] = {
    {"name", BLOBMSG_TYPE_STRING}, {"val", BLOBMSG_TYPE_INT32},   {"x", BLOBMSG_TYPE_UNSPEC},
    {"big", BLOBMSG_CAST_INT64},   {"small", BLOBMSG_CAST_INT64}, {"absent", BLOBMSG_TYPE_UNSPEC}};

TEST(BlobmsgParse, FindsWhatThePolicyNames) {
    Exact message(sample_message());
    blob_attr* found[kCount];
    ASSERT_EQ(blobmsg_parse_attr(kPolicy, kCount, found, message.attr()), 0);
    EXPECT_STREQ(blobmsg_get_string(found[kName]), "x");
    EXPECT_EQ(blobmsg_get_u32(found[kVal]), 5U);
    EXPECT_EQ(blobmsg_type(found[kX]), BLOBMSG_TYPE_TABLE);
    EXPECT_EQ(blobmsg_cast_u64(found[kBig]), 123456789012U);
    EXPECT_EQ(blobmsg_cast_s64(found[kSmall]), 7);
    EXPECT_EQ(found[kAbsent], nullptr);
}

TEST(BlobmsgParse, LeavesOutWhatHasAnotherType) {
    Blob blob;
    blobmsg_add_u32(blob, "name", 1);
    blobmsg_add_string(blob, "val", "5");
    blob_attr* found[kCount];
    ASSERT_EQ(blobmsg_parse_attr(kPolicy, kCount, found, blob.head()), 0);
    EXPECT_EQ(found[kName], nullptr);
    EXPECT_EQ(found[kVal], nullptr);
}

TEST(BlobmsgParse, TakesTheFirstOfAName) {
    Blob blob;
    blobmsg_add_u32(blob, "val", 1);
    blobmsg_add_u32(blob, "val", 2);
    blob_attr* found[kCount];
    ASSERT_EQ(blobmsg_parse_attr(kPolicy, kCount, found, blob.head()), 0);
    EXPECT_EQ(blobmsg_get_u32(found[kVal]), 1U);
}

TEST(BlobmsgParse, DoesNotTakeANameForItsBeginning) {
    Blob blob;
    blobmsg_add_u32(blob, "va", 1);
    blobmsg_add_u32(blob, "value", 2);
    blob_attr* found[kCount];
    ASSERT_EQ(blobmsg_parse_attr(kPolicy, kCount, found, blob.head()), 0);
    EXPECT_EQ(found[kVal], nullptr);
}

TEST(BlobmsgParse, RefusesAnElementThatIsNotWhole) {
    Blob blob;
    blobmsg_add_u32(blob, "val", 1);
    std::string bytes = blob.bytes();
    const std::string whole = bytes;
    struct Change {
        size_t place;
        char value;
    };
    // A name beyond the end, one without its end, and a type that there is not.
    for (const Change change : {Change{9, 0x7f}, Change{13, 'x'},
                                Change{4, static_cast<char>(0x80 | (BLOBMSG_TYPE_LAST + 1))}}) {
        bytes = whole;
        bytes[change.place] = change.value;
        Exact message(bytes);
        blob_attr* found[kCount];
        EXPECT_NE(blobmsg_parse_attr(kPolicy, kCount, found, message.attr()), 0) << change.place;
        EXPECT_EQ(found[kVal], nullptr);
    }
}

TEST(BlobmsgParse, GoesByPositionInAnArray) {
    Blob blob;
    blobmsg_add_u32(blob, nullptr, 1);
    blobmsg_add_string(blob, nullptr, "two");
    blobmsg_add_string(blob, nullptr, "three");
    static constexpr blobmsg_policy kByPlace[] = {{nullptr, BLOBMSG_TYPE_INT32},
                                                  {nullptr, BLOBMSG_TYPE_STRING}};
    blob_attr* found[2];
    ASSERT_EQ(blobmsg_parse_array_attr(kByPlace, 2, found, blob.head()), 0);
    EXPECT_EQ(blobmsg_get_u32(found[0]), 1U);
    EXPECT_STREQ(blobmsg_get_string(found[1]), "two");
}

TEST(BlobmsgCheck, CountsTheElementsOfOneType) {
    Blob blob;
    void* array = blobmsg_open_array(blob, "a");
    blobmsg_add_u32(blob, nullptr, 1);
    blobmsg_add_u32(blob, nullptr, 2);
    blobmsg_close_array(blob, array);
    auto* element = static_cast<blob_attr*>(blob_data(blob.head()));
    EXPECT_EQ(blobmsg_check_array(element, BLOBMSG_TYPE_INT32), 2);
    EXPECT_EQ(blobmsg_check_array(element, BLOBMSG_TYPE_UNSPEC), 2);
    EXPECT_EQ(blobmsg_check_array(element, BLOBMSG_TYPE_STRING), -1);
    EXPECT_TRUE(blobmsg_check_attr_list(element, BLOBMSG_TYPE_INT32));
    EXPECT_EQ(blobmsg_check_array_len(element, BLOBMSG_TYPE_INT32, blob_raw_len(element) - 1), -1);
}

TEST(BlobParse, SortsAttributesByTheirIds) {
    static constexpr blob_attr_info kInfo[4] = {{BLOB_ATTR_UNSPEC, 0, 0, nullptr},
                                                {BLOB_ATTR_INT32, 0, 0, nullptr},
                                                {BLOB_ATTR_STRING, 0, 3, nullptr},
                                                {BLOB_ATTR_INT8, 0, 0, nullptr}};
    Blob blob;
    blob_put_u32(blob, 1, 5);
    blob_put_string(blob, 2, "too long");
    blob_put_u32(blob, 3, 5);  // not 8 bits
    blob_put_u32(blob, 100, 5);
    blob_attr* found[4];
    EXPECT_EQ(blob_parse(blob.head(), found, kInfo, 4), 1);
    EXPECT_EQ(blob_get_u32(found[1]), 5U);
    EXPECT_EQ(found[2], nullptr);
    EXPECT_EQ(found[3], nullptr);
}

TEST(BlobParse, AsksTheCallerWhatToTake) {
    static constexpr blob_attr_info kInfo[3] = {
        {BLOB_ATTR_UNSPEC, 0, 0, nullptr},
        {BLOB_ATTR_INT32, 0, 0,
         [](const blob_attr_info*, blob_attr* attr) { return blob_get_u32(attr) == 5; }},
        {BLOB_ATTR_STRING, 4, 0, nullptr}};
    for (const uint32_t number : {5U, 6U}) {
        Blob blob;
        blob_put_u32(blob, 1, number);
        blob_put_string(blob, 2, "ab");  // too short
        blob_attr* found[3];
        EXPECT_EQ(blob_parse(blob.head(), found, kInfo, 3), number == 5 ? 1 : 0);
        EXPECT_EQ(found[1] != nullptr, number == 5);
        EXPECT_EQ(found[2], nullptr);
    }
}

TEST(BlobParse, TakesNothingFromWhatIsLongerThanItsBytes) {
    Blob blob;
    blob_put_u32(blob, 1, 5);
    Exact message(blob.bytes());
    blob_attr* found[2];
    EXPECT_EQ(blob_parse_untrusted(message.attr(), message.size() - 1, found, nullptr, 2), 0);
    EXPECT_EQ(found[1], nullptr);
}

// Everything that reads a message, on bytes that may be anything.
void read_hostile(Exact* message) {
    blob_attr* found[kCount];
    blobmsg_parse(kPolicy, kCount, found, message->data(),
                  static_cast<unsigned int>(message->size()));
    blobmsg_parse_array(kPolicy, kCount, found, message->data(),
                        static_cast<unsigned int>(message->size()));
    if (message->size() < sizeof(blob_attr)) return;
    blobmsg_check_attr_len(message->attr(), true, message->size());
    blobmsg_check_array_len(message->attr(), BLOBMSG_TYPE_UNSPEC, message->size());
    blob_attr* attributes[16];
    blob_parse_untrusted(message->attr(), message->size(), attributes, nullptr, 16);
}

TEST(BlobmsgHostile, ReadsNoByteBehindATruncatedMessage) {
    const std::string whole = sample_message();
    for (size_t size = 0; size <= whole.size(); size++) {
        for (const size_t skip : {size_t{0}, sizeof(blob_attr)}) {
            if (skip > size) continue;
            Exact message(whole.substr(skip, size - skip));
            read_hostile(&message);
        }
    }
}

TEST(BlobmsgHostile, ReadsNoByteBehindAMessageWithAnyByteChanged) {
    const std::string whole = sample_message().substr(sizeof(blob_attr));
    for (size_t place = 0; place < whole.size(); place++) {
        for (const char value : {'\0', '\1', '\4', '\x7f', '\x80', '\xff'}) {
            std::string bytes = whole;
            bytes[place] = value;
            Exact message(bytes);
            read_hostile(&message);
        }
    }
}

// ---- trees ----

struct Entry {
    avl_node avl = {};
    int key = 0;
    int number = 0;
};

int compare_ints(const void* k1, const void* k2, void* /*ptr*/) {
    return *static_cast<const int*>(k1) - *static_cast<const int*>(k2);
}

// The height of a side; fails where it is out of balance or does not know its parent.
int checked_height(const avl_node* node, const avl_node* parent) {
    if (!node) return 0;
    EXPECT_EQ(node->parent, parent);
    EXPECT_TRUE(node->leader);
    const int left = checked_height(node->left, node);
    const int right = checked_height(node->right, node);
    EXPECT_EQ(node->balance, right - left);
    EXPECT_LE(std::abs(right - left), 1);
    return 1 + std::max(left, right);
}

std::vector<int> keys_of(avl_tree* tree) {
    std::vector<int> keys;
    Entry* entry = nullptr;
    avl_for_each_element(tree, entry, avl) {
        keys.push_back(entry->key);
    }
    return keys;
}

TEST(Avl, StaysOrderedAndBalancedWhateverComesAndGoes) {
    for (const bool duplicates : {false, true}) {
        std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same run each time
        avl_tree tree;
        avl_init(&tree, compare_ints, duplicates, nullptr);
        std::vector<std::unique_ptr<Entry>> in;
        std::vector<int> expected;
        for (int step = 0; step < 3000; step++) {
            if (random() % 3 != 0 || in.empty()) {
                auto entry = std::make_unique<Entry>();
                entry->key = static_cast<int>(random() % 200);
                entry->avl.key = &entry->key;
                const bool there =
                    std::find(expected.begin(), expected.end(), entry->key) != expected.end();
                const int result = avl_insert(&tree, &entry->avl);
                ASSERT_EQ(result, there && !duplicates ? -1 : 0);
                if (result < 0) continue;
                expected.insert(std::upper_bound(expected.begin(), expected.end(), entry->key),
                                entry->key);
                in.push_back(std::move(entry));
            } else {
                std::swap(in[random() % in.size()], in.back());
                avl_delete(&tree, &in.back()->avl);
                expected.erase(std::find(expected.begin(), expected.end(), in.back()->key));
                in.pop_back();
            }
            ASSERT_EQ(tree.count, expected.size());
            if (step % 50 == 0) {
                checked_height(tree.root, nullptr);
                ASSERT_EQ(keys_of(&tree), expected);
            }
        }
        checked_height(tree.root, nullptr);
    }
}

class AvlOfFive : public testing::Test {
  protected:
    AvlOfFive() {
        avl_init(&tree, compare_ints, true, nullptr);
        const int keys[] = {10, 20, 20, 30, 20};
        for (size_t i = 0; i < std::size(keys); i++) {
            entries[i].key = keys[i];
            entries[i].number = static_cast<int>(i);
            entries[i].avl.key = &entries[i].key;
            avl_insert(&tree, &entries[i].avl);
        }
    }
    std::vector<int> numbers() {
        std::vector<int> result;
        Entry* entry = nullptr;
        avl_for_each_element(&tree, entry, avl) {
            result.push_back(entry->number);
        }
        return result;
    }

    avl_tree tree = {};
    Entry entries[5];
};

TEST_F(AvlOfFive, FindsTheFirstOfAKeyAndItsNeighbours) {
    Entry* entry = nullptr;
    const int fifteen = 15, twenty = 20, five = 5, forty = 40;
    EXPECT_EQ(avl_find_element(&tree, &twenty, entry, avl), &entries[1]);
    EXPECT_EQ(avl_find_element(&tree, &fifteen, entry, avl), nullptr);
    EXPECT_EQ(avl_find_ge_element(&tree, &fifteen, entry, avl), &entries[1]);
    EXPECT_EQ(avl_find_le_element(&tree, &fifteen, entry, avl), &entries[0]);
    EXPECT_EQ(avl_find_ge_element(&tree, &forty, entry, avl), nullptr);
    EXPECT_EQ(avl_find_le_element(&tree, &five, entry, avl), nullptr);
    EXPECT_EQ(avl_find_le_element(&tree, &forty, entry, avl), &entries[3]);
    EXPECT_EQ(avl_find_ge_element(&tree, &five, entry, avl), &entries[0]);
}

TEST_F(AvlOfFive, KeepsTheOrderOfOneKeyWhenItsFirstGoes) {
    EXPECT_THAT(numbers(), ElementsAre(0, 1, 2, 4, 3));
    avl_delete(&tree, &entries[1].avl);
    EXPECT_THAT(numbers(), ElementsAre(0, 2, 4, 3));
    Entry* entry = nullptr;
    const int twenty = 20;
    EXPECT_EQ(avl_find_element(&tree, &twenty, entry, avl), &entries[2]);
    avl_delete(&tree, &entries[4].avl);
    EXPECT_THAT(numbers(), ElementsAre(0, 2, 3));
    checked_height(tree.root, nullptr);
}

TEST_F(AvlOfFive, WalksSafelyAndEmptiesItself) {
    Entry* entry = nullptr;
    Entry* next = nullptr;
    avl_for_each_element_safe(&tree, entry, avl, next) {
        if (entry->key == 20) avl_delete(&tree, &entry->avl);
    }
    EXPECT_THAT(numbers(), ElementsAre(0, 3));
    std::vector<int> removed;
    avl_remove_all_elements(&tree, entry, avl, next) {
        removed.push_back(entry->number);
    }
    EXPECT_THAT(removed, ElementsAre(0, 3));
    EXPECT_TRUE(avl_is_empty(&tree));
    EXPECT_TRUE(numbers().empty());
}

TEST(Avl, ComparesTextsAndBlobs) {
    EXPECT_LT(avl_strcmp("a", "b", nullptr), 0);
    EXPECT_EQ(avl_strcmp("a", "a", nullptr), 0);
    Blob one, two;
    blob_put_u32(one, 1, 1);
    blob_put_u32(two, 1, 2);
    EXPECT_LT(avl_blobcmp(one.head(), two.head(), nullptr), 0);
}

// ---- rings and blocks ----

struct Item {
    int value;
    list_head list;
};

std::vector<int> values_of(list_head* head) {
    std::vector<int> values;
    Item* item = nullptr;
    list_for_each_entry(item, head, list) {
        values.push_back(item->value);
    }
    return values;
}

TEST(List, AddsMovesAndSplices) {
    LIST_HEAD(first);
    LIST_HEAD(second);
    Item items[4] = {{0, {}}, {1, {}}, {2, {}}, {3, {}}};
    EXPECT_TRUE(list_empty(&first));
    list_add(&items[0].list, &first);
    list_add(&items[1].list, &first);
    list_add_tail(&items[2].list, &first);
    EXPECT_THAT(values_of(&first), ElementsAre(1, 0, 2));
    EXPECT_TRUE(list_is_first(&items[1].list, &first));
    EXPECT_TRUE(list_is_last(&items[2].list, &first));
    list_move_tail(&items[1].list, &first);
    list_move(&items[2].list, &first);
    EXPECT_THAT(values_of(&first), ElementsAre(2, 0, 1));
    list_add(&items[3].list, &second);
    list_splice_init(&first, &second);
    EXPECT_THAT(values_of(&second), ElementsAre(2, 0, 1, 3));
    EXPECT_TRUE(list_empty(&first));
    list_splice_tail_init(&second, &first);
    Item* item = nullptr;
    Item* next = nullptr;
    list_for_each_entry_safe(item, next, &first, list) {
        if (item->value != 1) list_del(&item->list);
    }
    EXPECT_THAT(values_of(&first), ElementsAre(1));
    EXPECT_EQ(list_first_entry(&first, Item, list), list_last_entry(&first, Item, list));
}

TEST(CallocA, GivesOneBlockForSeveralObjects) {
    char* text = nullptr;
    uint64_t* number = nullptr;
    auto* first =
        static_cast<char*>(calloc_a(size_t{3}, &text, size_t{5}, &number, sizeof(uint64_t)));
    ASSERT_NE(first, nullptr);
    EXPECT_GE(text, first + 3);
    EXPECT_GE(reinterpret_cast<char*>(number), text + 5);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(number) % alignof(uint64_t), 0U);
    EXPECT_EQ(*number, 0U);
    free(first);
}

// ---- the loop ----

class Uloop : public testing::Test {
  protected:
    Uloop() {
        EXPECT_EQ(uloop_init(), 0);
        EXPECT_EQ(pipe(ends), 0);
    }
    ~Uloop() override {
        uloop_done();
        close(ends[0]);
        if (ends[1] >= 0) close(ends[1]);
    }
    int ends[2] = {-1, -1};
};

struct Reader {
    uloop_fd fd = {};
    std::string got;
    bool eof = false;
};

void read_pipe(uloop_fd* fd, unsigned int events) {
    auto* reader = container_of(fd, Reader, fd);
    EXPECT_TRUE(events & ULOOP_READ);
    char bytes[16];
    const ssize_t size = read(fd->fd, bytes, sizeof(bytes));
    if (size > 0) reader->got.append(bytes, static_cast<size_t>(size));
    reader->eof = fd->eof;
    uloop_end();
}

TEST_F(Uloop, HandlesWhatCanBeReadAndTellsOfTheEnd) {
    Reader reader;
    reader.fd.cb = read_pipe;
    reader.fd.fd = ends[0];
    ASSERT_EQ(uloop_fd_add(&reader.fd, ULOOP_READ), 0);
    ASSERT_EQ(write(ends[1], "hello", 5), 5);
    EXPECT_EQ(uloop_run_timeout(5000), 0);
    EXPECT_EQ(reader.got, "hello");
    EXPECT_FALSE(reader.eof);
    close(ends[1]);
    ends[1] = -1;
    uloop_run_timeout(5000);
    EXPECT_TRUE(reader.eof);
    EXPECT_EQ(uloop_fd_delete(&reader.fd), 0);
    EXPECT_FALSE(reader.fd.registered);
}

std::vector<int> fired;

template <int kNumber>
void fire(uloop_timeout* /*timeout*/) {
    fired.push_back(kNumber);
    if (kNumber == 3) uloop_end();
}

TEST_F(Uloop, FiresTimeoutsInTheOrderOfTheirTimes) {
    fired.clear();
    uloop_timeout timeouts[4] = {};
    timeouts[0].cb = fire<0>;
    timeouts[1].cb = fire<1>;
    timeouts[2].cb = fire<2>;
    timeouts[3].cb = fire<3>;
    uloop_timeout_set(&timeouts[3], 30);
    uloop_timeout_set(&timeouts[1], 10);
    uloop_timeout_set(&timeouts[0], 5);
    uloop_timeout_set(&timeouts[2], 5000);
    EXPECT_GT(uloop_timeout_remaining64(&timeouts[2]), 4000);
    EXPECT_EQ(uloop_timeout_add(&timeouts[2]), -1);
    uloop_timeout_set(&timeouts[2], 20);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_THAT(fired, ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(uloop_timeout_cancel(&timeouts[0]), -1);
    EXPECT_EQ(uloop_get_next_timeout(), -1);
}

TEST_F(Uloop, EndsAfterItsTimeAndOnASignal) {
    EXPECT_EQ(uloop_run_timeout(10), 0);
    uloop_timeout timeout = {};
    timeout.cb = [](uloop_timeout* /*timeout*/) { raise(SIGTERM); };
    uloop_timeout_set(&timeout, 1);
    EXPECT_EQ(uloop_run(), SIGTERM);
}

TEST_F(Uloop, RunsAgainAfterASignal) {
    uloop_timeout timeout = {};
    timeout.cb = [](uloop_timeout* /*timeout*/) { raise(SIGTERM); };
    uloop_timeout_set(&timeout, 1);
    ASSERT_EQ(uloop_run(), SIGTERM);
    fired.clear();
    uloop_timeout last = {};
    last.cb = fire<3>;
    uloop_timeout_set(&last, 5);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_THAT(fired, ElementsAre(3));
}

TEST_F(Uloop, EndsTheInnerLoopAloneUnlessASignalComes) {
    static bool by_signal;
    static int inner_result;
    for (const bool signal : {false, true}) {
        by_signal = signal;
        fired.clear();
        uloop_timeout inner = {};
        inner.cb = [](uloop_timeout* /*timeout*/) {
            uloop_timeout end = {};
            end.cb = [](uloop_timeout* /*timeout*/) {
                by_signal ? (void)raise(SIGINT) : uloop_end();
            };
            uloop_timeout_set(&end, 1);
            inner_result = uloop_run();
        };
        uloop_timeout last = {};
        last.cb = fire<3>;
        uloop_timeout_set(&inner, 1);
        uloop_timeout_set(&last, 500);
        EXPECT_EQ(uloop_run(), signal ? SIGINT : 0);
        EXPECT_EQ(inner_result, signal ? SIGINT : 0);
        EXPECT_EQ(fired.size(), signal ? 0U : 1U);
        uloop_timeout_cancel(&last);
    }
}

TEST_F(Uloop, LeavesABlockingDescriptorAsItIs) {
    uloop_fd fd = {};
    fd.cb = read_pipe;
    fd.fd = ends[0];
    ASSERT_EQ(uloop_fd_add(&fd, ULOOP_READ | ULOOP_BLOCKING), 0);
    EXPECT_EQ(fcntl(ends[0], F_GETFL) & O_NONBLOCK, 0);
    ASSERT_EQ(uloop_fd_delete(&fd), 0);
    ASSERT_EQ(uloop_fd_add(&fd, ULOOP_READ), 0);
    EXPECT_NE(fcntl(ends[0], F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(uloop_fd_delete(&fd), 0);
}

struct Watched {
    uloop_fd fd = {};
    uloop_fd* other = nullptr;
    int called = 0;
};

// Two descriptors for one handler, each with a byte to read.
class TwoReady {
  public:
    TwoReady(const int (&ends)[2], uloop_fd_handler handler) {
        EXPECT_EQ(pipe(others_), 0);
        watch(first, ends, handler);
        watch(second, others_, handler);
        first.other = &second.fd;
        second.other = &first.fd;
    }
    ~TwoReady() {
        close(others_[0]);
        close(others_[1]);
    }
    TwoReady(const TwoReady&) = delete;
    TwoReady& operator=(const TwoReady&) = delete;

    Watched first, second;

  private:
    static void watch(Watched& watched, const int (&ends)[2], uloop_fd_handler handler) {
        watched.fd.cb = handler;
        watched.fd.fd = ends[0];
        uloop_fd_add(&watched.fd, ULOOP_READ);
        EXPECT_EQ(write(ends[1], "x", 1), 1);
    }

    int others_[2] = {-1, -1};
};

void remove_other(uloop_fd* fd, unsigned int /*events*/) {
    auto* watched = container_of(fd, Watched, fd);
    watched->called++;
    char byte = 0;
    EXPECT_EQ(read(fd->fd, &byte, 1), 1);
    uloop_fd_delete(watched->other);
}

TEST_F(Uloop, DoesNotCallWhatAnotherHandlerHasRemoved) {
    TwoReady two(ends, remove_other);
    uloop_run_timeout(20);
    EXPECT_EQ(two.first.called + two.second.called, 1);
    uloop_fd_delete(two.first.called ? &two.first.fd : &two.second.fd);
}

TEST_F(Uloop, LeavesTheRestForTheNextRunOnceItIsToEnd) {
    Reader first, second;
    first.fd.cb = second.fd.cb = read_pipe;
    first.fd.fd = ends[0];
    second.fd.fd = dup(ends[0]);
    uloop_fd_add(&first.fd, ULOOP_READ);
    uloop_fd_add(&second.fd, ULOOP_READ);
    // More than one handler reads at once.
    ASSERT_EQ(write(ends[1], "a byte for each of them", 23), 23);
    uloop_run_timeout(5000);
    EXPECT_EQ(first.got.size() + second.got.size(), 16U);
    uloop_run_timeout(5000);
    EXPECT_EQ(first.got.size() + second.got.size(), 23U);
    uloop_fd_delete(&first.fd);
    uloop_fd_delete(&second.fd);
    close(second.fd.fd);
}

bool is_inside = false;

// Has its one turn, and within the first of them runs a loop.
void take_turn(uloop_fd* fd, unsigned int /*events*/) {
    container_of(fd, Watched, fd)->called++;
    uloop_fd_delete(fd);
    if (!std::exchange(is_inside, true)) uloop_run_timeout(5000);
    uloop_end();
}

TEST_F(Uloop, CallsNothingTwiceThatAnInnerLoopHasCalled) {
    is_inside = false;
    TwoReady two(ends, take_turn);
    uloop_run_timeout(5000);
    EXPECT_EQ(two.first.called, 1);
    EXPECT_EQ(two.second.called, 1);
}

int times_set = 0;

TEST_F(Uloop, LetsDescriptorsHaveTheirTurnBesideATimeoutThatIsAlwaysDue) {
    constexpr int kMany = 1000000;
    times_set = 0;
    uloop_timeout timeout = {};
    timeout.cb = [](uloop_timeout* due) {
        if (++times_set < kMany) uloop_timeout_set(due, 0);
    };
    uloop_timeout_set(&timeout, 0);
    Reader reader;
    reader.fd.cb = read_pipe;
    reader.fd.fd = ends[0];
    uloop_fd_add(&reader.fd, ULOOP_READ);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_LT(times_set, kMany);
    uloop_timeout_cancel(&timeout);
    uloop_fd_delete(&reader.fd);
}

}  // namespace
