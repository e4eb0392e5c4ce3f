// dictionary_test.cpp - the table of texts: its results, its public fields, and the private index
// behind them, compared with a table that is searched slot by slot.
#include "tq/dictionary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/device.h"
#include "support/faults.h"
#include "support/printed.h"

namespace {

using testing::ElementsAre;
using tq_test::faults::each_failure;

struct Delete {
    void operator()(dictionary* d) const { dictionary_del(d); }
};
using Dictionary = std::unique_ptr<dictionary, Delete>;

Dictionary make(int size = 0) {
    return Dictionary(dictionary_new(size));
}

std::string text_of(const char* text) {
    return text ? text : "(null)";
}

std::string name(unsigned number) {
    return "key" + std::to_string(number);
}

// "slot:key=value" of the slots in use.
std::vector<std::string> slots(const dictionary* d) {
    std::vector<std::string> list;
    for (int i = 0; i < d->size; i++) {
        if (!d->key[i]) continue;
        EXPECT_EQ(d->hash[i], dictionary_hash(d->key[i]));
        list.push_back(std::to_string(i) + ":" + d->key[i] + "=" + text_of(d->val[i]));
    }
    EXPECT_EQ(list.size(), static_cast<size_t>(d->n));
    return list;
}

std::string dump(const dictionary* d) {
    return tq_test::written([=](FILE* out) { dictionary_dump(d, out); });
}

void fill(dictionary* d, unsigned count) {
    for (unsigned i = 0; i < count; i++)
        ASSERT_EQ(dictionary_set(d, name(i).c_str(), std::to_string(i).c_str()), 0);
}

// hash

TEST(DictionaryHash, IsTheOneAtATimeHash) {
    EXPECT_EQ(dictionary_hash("abc"), 3977453403U);
    EXPECT_EQ(dictionary_hash("a"), 0xca2e9442U);
    EXPECT_EQ(dictionary_hash("The quick brown fox jumps over the lazy dog"), 0x519e91f5U);
}

TEST(DictionaryHash, TakesBytesFrom0x80OnAsNegative) {
    EXPECT_EQ(dictionary_hash("\xff\x80z"), 2816916234U);
}

TEST(DictionaryHash, IsZeroForTheEmptyTextAndForNull) {
    EXPECT_EQ(dictionary_hash(""), 0U);
    EXPECT_EQ(dictionary_hash(nullptr), 0U);
}

// new, del

TEST(DictionaryNew, HasAtLeast128EmptySlots) {
    for (const int size : {INT_MIN, -1, 0, 1, 127, 128}) {
        const Dictionary d = make(size);
        ASSERT_TRUE(d);
        EXPECT_EQ(d->n, 0);
        EXPECT_EQ(d->size, 128) << size;
        for (int i = 0; i < d->size; i++) {
            EXPECT_EQ(d->key[i], nullptr);
            EXPECT_EQ(d->val[i], nullptr);
            EXPECT_EQ(d->hash[i], 0U);
        }
    }
}

TEST(DictionaryNew, HasAsManySlotsAsAskedForBeyondThat) {
    EXPECT_EQ(make(129)->size, 129);
    EXPECT_EQ(make(5000)->size, 5000);
}

TEST(DictionaryNew, IsNullWhenMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    unsigned nulls = 0;
    unsigned failures = 0;
    for (const char* call : {"malloc", "calloc"}) {
        failures += each_failure(call, ENOMEM, [&] { nulls += make() ? 0 : 1; });
    }
    EXPECT_EQ(failures, 2U);
    EXPECT_EQ(nulls, 2U);
}

TEST(DictionaryNew, IsNullForMoreThanAnyTableHolds) {
    EXPECT_FALSE(make(INT_MAX));
    EXPECT_FALSE(make((1 << 26) + 1));
}

TEST(DictionaryDel, TakesNull) {
    dictionary_del(nullptr);
}

// get, set, unset

TEST(DictionarySet, KeepsACopyOfKeyAndValue) {
    const Dictionary d = make();
    std::string key = "key";
    std::string value = "value";
    ASSERT_EQ(dictionary_set(d.get(), key.c_str(), value.c_str()), 0);
    key[0] = 'x';
    value[0] = 'x';
    EXPECT_STREQ(dictionary_get(d.get(), "key", "none"), "value");
}

TEST(DictionarySet, ReplacesAValueInItsSlot) {
    const Dictionary d = make();
    dictionary_set(d.get(), "a", "1");
    dictionary_set(d.get(), "b", "2");
    EXPECT_EQ(dictionary_set(d.get(), "a", "3"), 0);
    EXPECT_THAT(slots(d.get()), ElementsAre("0:a=3", "1:b=2"));
}

TEST(DictionarySet, TakesNullAndTheEmptyTextForValues) {
    const Dictionary d = make();
    EXPECT_EQ(dictionary_set(d.get(), "null", nullptr), 0);
    EXPECT_EQ(dictionary_set(d.get(), "empty", ""), 0);
    EXPECT_EQ(dictionary_get(d.get(), "null", "none"), nullptr);
    EXPECT_STREQ(dictionary_get(d.get(), "empty", "none"), "");
    EXPECT_EQ(dictionary_set(d.get(), "empty", nullptr), 0);
    EXPECT_EQ(dictionary_set(d.get(), "null", "text"), 0);
    EXPECT_THAT(slots(d.get()), ElementsAre("0:null=text", "1:empty=(null)"));
}

TEST(DictionarySet, TakesTheEmptyKey) {
    const Dictionary d = make();
    EXPECT_EQ(dictionary_set(d.get(), "", "value"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "", "none"), "value");
}

TEST(DictionarySet, TakesTheDictionarysOwnTexts) {
    const Dictionary d = make();
    dictionary_set(d.get(), "key", "value");
    EXPECT_EQ(dictionary_set(d.get(), d->key[0], d->val[0]), 0);
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key=value"));
}

TEST(DictionarySet, KeepsKeysApartThatDifferInCase) {
    const Dictionary d = make();
    dictionary_set(d.get(), "key", "1");
    dictionary_set(d.get(), "Key", "2");
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key=1", "1:Key=2"));
}

TEST(DictionarySet, KeepsKeysApartWhoseHashesAreTheSame) {
    const Dictionary d = make();
    ASSERT_EQ(dictionary_hash("key74784"), dictionary_hash("key78400"));
    dictionary_set(d.get(), "key74784", "1");
    EXPECT_STREQ(dictionary_get(d.get(), "key78400", "none"), "none");
    dictionary_set(d.get(), "key78400", "2");
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key74784=1", "1:key78400=2"));
    dictionary_unset(d.get(), "key74784");
    EXPECT_STREQ(dictionary_get(d.get(), "key78400", "none"), "2");
}

TEST(DictionarySet, DoublesAFullTableInItsOrder) {
    const Dictionary d = make();
    fill(d.get(), 128);
    EXPECT_EQ(d->size, 128);
    dictionary_set(d.get(), "one more", "x");
    EXPECT_EQ(d->size, 256);
    EXPECT_EQ(d->n, 129);
    for (int i = 0; i < 128; i++)
        EXPECT_EQ(d->key[i], name(static_cast<unsigned>(i)));
    EXPECT_STREQ(d->key[128], "one more");
    EXPECT_EQ(d->key[129], nullptr);
    EXPECT_EQ(d->hash[255], 0U);
}

TEST(DictionarySet, DoublesATableOfAnySize) {
    const Dictionary d = make(200);
    fill(d.get(), 401);
    EXPECT_EQ(d->size, 800);
    EXPECT_EQ(slots(d.get()).size(), 401U);
}

TEST(DictionarySet, RefusesNull) {
    const Dictionary d = make();
    EXPECT_EQ(dictionary_set(nullptr, "key", "value"), -1);
    EXPECT_EQ(dictionary_set(d.get(), nullptr, "value"), -1);
    EXPECT_EQ(d->n, 0);
}

TEST(DictionarySet, LeavesTheTableAsItWasWhenMemoryRunsOut) {
    TQ_NEEDS_FAILING_ALLOCATOR();
    const Dictionary d = make();
    fill(d.get(), 128);
    const std::vector<std::string> before = slots(d.get());
    const auto fails = [&](const char* key, const char* call, unsigned nth) {
        const tq_test::faults::Fail fail(call, nth, ENOMEM);
        return dictionary_set(d.get(), key, "new") == -1 && fail.fired();
    };
    EXPECT_TRUE(fails("one more", "strdup", 1));
    EXPECT_TRUE(fails("one more", "strdup", 2));
    EXPECT_TRUE(fails("one more", "calloc", 1));
    EXPECT_TRUE(fails("key0", "strdup", 1));
    EXPECT_EQ(d->size, 128);
    EXPECT_EQ(slots(d.get()), before);
    EXPECT_EQ(dictionary_set(d.get(), "one more", "new"), 0);
    EXPECT_EQ(d->n, 129);
}

TEST(DictionaryGet, GivesTheDefaultWhereThereIsNone) {
    const Dictionary d = make();
    const char* none = "none";
    EXPECT_EQ(dictionary_get(d.get(), "key", none), none);
    dictionary_set(d.get(), "key", "value");
    EXPECT_EQ(dictionary_get(d.get(), "ke", none), none);
    EXPECT_EQ(dictionary_get(d.get(), "keys", nullptr), nullptr);
    EXPECT_EQ(dictionary_get(d.get(), nullptr, none), none);
    EXPECT_EQ(dictionary_get(nullptr, "key", none), none);
}

TEST(DictionaryUnset, EmptiesTheSlot) {
    const Dictionary d = make();
    fill(d.get(), 3);
    dictionary_unset(d.get(), "key1");
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key0=0", "2:key2=2"));
    EXPECT_EQ(d->hash[1], 0U);
    EXPECT_EQ(d->val[1], nullptr);
    EXPECT_STREQ(dictionary_get(d.get(), "key1", "none"), "none");
}

TEST(DictionaryUnset, LeavesTheRestForAKeyThatIsNotThere) {
    const Dictionary d = make();
    fill(d.get(), 2);
    dictionary_unset(d.get(), "other");
    dictionary_unset(d.get(), nullptr);
    dictionary_unset(nullptr, "key0");
    EXPECT_EQ(slots(d.get()).size(), 2U);
}

TEST(DictionaryUnset, LeavesTheFirstFreeSlotToTheNextKey) {
    const Dictionary d = make();
    fill(d.get(), 5);
    for (const char* key : {"key3", "key1", "key4"})
        dictionary_unset(d.get(), key);
    for (const char* key : {"a", "b", "c", "d"})
        dictionary_set(d.get(), key, "x");
    EXPECT_THAT(slots(d.get()),
                ElementsAre("0:key0=0", "1:a=x", "2:key2=2", "3:b=x", "4:c=x", "5:d=x"));
}

TEST(DictionaryUnset, LeavesTheFirstFreeSlotOfALargeTableToTheNextKey) {
    constexpr unsigned kCount = 40000;  // more than 32 * 32 * 32: three levels and a part of one
    const Dictionary d = make();
    fill(d.get(), kCount);
    const std::vector<unsigned> holes = {39999, 32768, 32767, 1024, 1023, 31, 0, 20000};
    for (const unsigned hole : holes)
        dictionary_unset(d.get(), name(hole).c_str());
    std::vector<unsigned> order = holes;
    std::ranges::sort(order);
    order.push_back(kCount);
    for (size_t i = 0; i < order.size(); i++) {
        const std::string key = "new" + std::to_string(i);
        dictionary_set(d.get(), key.c_str(), nullptr);
        EXPECT_EQ(text_of(d->key[order[i]]), key);
    }
    for (unsigned i = 1; i < kCount; i += 997)
        EXPECT_EQ(text_of(dictionary_get(d.get(), name(i).c_str(), "none")), std::to_string(i));
}

TEST(Dictionary, CanBeEmptiedAndFilledAnew) {
    const Dictionary d = make();
    for (int round = 0; round < 3; round++) {
        fill(d.get(), 300);
        EXPECT_STREQ(d->key[0], "key0");
        EXPECT_STREQ(d->key[299], "key299");
        for (unsigned i = 0; i < 300; i++)
            dictionary_unset(d.get(), name(299 - i).c_str());
        EXPECT_EQ(d->n, 0);
    }
    EXPECT_EQ(d->size, 512);
}

// The interface's own words, without an index: searched slot by slot, first free slot, doubling.
struct Model {
    struct Slot {
        std::string key;
        std::optional<std::string> val;
        bool operator==(const Slot&) const = default;
    };
    std::vector<std::optional<Slot>> table = std::vector<std::optional<Slot>>(128);

    size_t find(const std::string& key) const {
        for (size_t i = 0; i < table.size(); i++)
            if (table[i] && table[i]->key == key) return i;
        return table.size();
    }
    void set(const std::string& key, std::optional<std::string> val) {
        size_t slot = find(key);
        for (size_t i = 0; slot == table.size() && i < table.size(); i++)
            if (!table[i]) slot = i;
        if (slot == table.size()) table.resize(table.size() * 2);
        table[slot] = Slot{key, std::move(val)};
    }
    void unset(const std::string& key) {
        if (const size_t slot = find(key); slot < table.size()) table[slot].reset();
    }
};

bool equal(const dictionary* d, const Model& model) {
    if (static_cast<size_t>(d->size) != model.table.size()) return false;
    int used = 0;
    for (size_t i = 0; i < model.table.size(); i++) {
        const auto& slot = model.table[i];
        if (!slot.has_value()) {
            if (d->key[i] || d->val[i] || d->hash[i]) return false;
            continue;
        }
        used++;
        if (!d->key[i] || slot->key != d->key[i]) return false;
        if (slot->val.has_value() != (d->val[i] != nullptr)) return false;
        if (slot->val && *slot->val != d->val[i]) return false;
        if (d->hash[i] != dictionary_hash(d->key[i])) return false;
    }
    return used == d->n;
}

void compare_with_model(unsigned keys, unsigned steps, unsigned unsets_in_ten) {
    std::mt19937 random(keys + unsets_in_ten);
    const auto below = [&random](unsigned limit) {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(random);
    };
    const Dictionary d = make();
    Model model;
    for (unsigned step = 0; step < steps; step++) {
        const std::string key = name(below(keys));
        if (below(10) < unsets_in_ten) {
            dictionary_unset(d.get(), key.c_str());
            model.unset(key);
        } else if (below(8) == 0) {
            dictionary_set(d.get(), key.c_str(), nullptr);
            model.set(key, std::nullopt);
        } else {
            const std::string value = std::to_string(step);
            dictionary_set(d.get(), key.c_str(), value.c_str());
            model.set(key, value);
        }
        const std::string sought = name(below(keys));
        const size_t slot = model.find(sought);
        const std::string expected =
            slot == model.table.size() ? "none" : model.table[slot]->val.value_or("(null)");
        ASSERT_EQ(text_of(dictionary_get(d.get(), sought.c_str(), "none")), expected);
        ASSERT_TRUE(step % 64 != 0 || equal(d.get(), model)) << "after step " << step;
    }
    EXPECT_TRUE(equal(d.get(), model));
}

TEST(Dictionary, IsWhatATableWithoutAnIndexWouldBe) {
    compare_with_model(40, 4000, 5);
    compare_with_model(128, 4000, 3);
    compare_with_model(1000, 5000, 4);
    compare_with_model(2000, 6000, 1);
}

// What a caller does with the record

TEST(Dictionary, IsFoundInThroughACopyOfTheRecord) {
    const Dictionary d = make();
    fill(d.get(), 50);
    const dictionary copy = *d;
    EXPECT_STREQ(dictionary_get(&copy, "key42", "none"), "42");
    EXPECT_STREQ(dictionary_get(&copy, "other", "none"), "none");
    EXPECT_EQ(dump(&copy), dump(d.get()));
}

TEST(Dictionary, TakesAChangeThroughACopyOfTheRecord) {
    const Dictionary d = make();
    fill(d.get(), 5);
    dictionary copy = *d;
    dictionary_set(&copy, "other", "x");
    EXPECT_STREQ(dictionary_get(d.get(), "other", "none"), "x");
    dictionary_set(d.get(), "another", "y");
    EXPECT_STREQ(d->key[6], "another");
    EXPECT_STREQ(dictionary_get(&copy, "another", "none"), "y");
}

TEST(Dictionary, TakesAValueThatTheCallerHasReplaced) {
    const Dictionary d = make();
    fill(d.get(), 3);
    free(d->val[1]);
    d->val[1] = strdup("mine");
    EXPECT_STREQ(dictionary_get(d.get(), "key1", "none"), "mine");
    EXPECT_EQ(dictionary_set(d.get(), "key1", "again"), 0);
    EXPECT_STREQ(d->val[1], "again");
}

TEST(Dictionary, TakesNoticeOfSlotsThatTheCallerHasFilled) {
    const Dictionary d = make();
    fill(d.get(), 3);
    d->key[5] = strdup("mine");
    d->val[5] = strdup("value");
    d->hash[5] = dictionary_hash("mine");
    d->n++;
    EXPECT_STREQ(dictionary_get(d.get(), "mine", "none"), "value");
    EXPECT_STREQ(dictionary_get(d.get(), "key2", "none"), "2");
    for (const char* key : {"a", "b", "c"})
        dictionary_set(d.get(), key, "x");
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key0=0", "1:key1=1", "2:key2=2", "3:a=x", "4:b=x",
                                            "5:mine=value", "6:c=x"));
    dictionary_unset(d.get(), "mine");
    EXPECT_STREQ(dictionary_get(d.get(), "mine", "none"), "none");
}

TEST(Dictionary, TakesNoticeOfSlotsThatTheCallerHasEmptied) {
    const Dictionary d = make();
    fill(d.get(), 4);
    free(d->key[1]);
    free(d->val[1]);
    d->key[1] = d->val[1] = nullptr;
    d->hash[1] = 0;
    d->n--;
    EXPECT_STREQ(dictionary_get(d.get(), "key1", "none"), "none");
    dictionary_unset(d.get(), "key3");
    dictionary_set(d.get(), "a", "x");
    dictionary_set(d.get(), "b", "x");
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key0=0", "1:a=x", "2:key2=2", "3:b=x"));
}

TEST(Dictionary, PassesOverTheHashOfASlotThatTheCallerHasEmptied) {
    const Dictionary d = make();
    fill(d.get(), 3);
    free(d->key[1]);
    free(d->val[1]);
    d->key[1] = d->val[1] = nullptr;
    d->n--;
    EXPECT_STREQ(dictionary_get(d.get(), "key1", "none"), "none");
    EXPECT_STREQ(dictionary_get(d.get(), "key2", "none"), "2");
}

TEST(Dictionary, TakesNoticeAsOftenAsTheCallerChangesTheRecord) {
    const Dictionary d = make();
    fill(d.get(), 100);
    for (unsigned round = 0; round < 50; round++) {
        free(d->key[round]);
        free(d->val[round]);
        d->key[round] = d->val[round] = nullptr;
        d->hash[round] = 0;
        d->n--;
        dictionary_set(d.get(), "key99", "new");
        EXPECT_STREQ(dictionary_get(d.get(), name(round).c_str(), "none"), "none");
    }
    EXPECT_EQ(slots(d.get()).size(), 50U);
}

// A record of the caller's own making.
Dictionary made_by_hand(int size) {
    const auto count = static_cast<size_t>(size);
    auto* d = static_cast<dictionary*>(malloc(sizeof(dictionary)));
    d->n = 0;
    d->size = size;
    d->val = static_cast<char**>(calloc(count, sizeof(char*)));
    d->key = static_cast<char**>(calloc(count, sizeof(char*)));
    d->hash = static_cast<unsigned*>(calloc(count, sizeof(unsigned)));
    return Dictionary(d);
}

TEST(Dictionary, WorksOnARecordThatTheCallerHasMade) {
    const Dictionary d = made_by_hand(3);
    fill(d.get(), 3);
    dictionary_unset(d.get(), "key1");
    dictionary_set(d.get(), "a", "x");
    EXPECT_STREQ(dictionary_get(d.get(), "key2", "none"), "2");
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key0=0", "1:a=x", "2:key2=2"));
    EXPECT_EQ(d->size, 3);
    dictionary_set(d.get(), "b", "x");
    EXPECT_EQ(d->size, 128);
    EXPECT_THAT(slots(d.get()), ElementsAre("0:key0=0", "1:a=x", "2:key2=2", "3:b=x"));
    EXPECT_STREQ(dictionary_get(d.get(), "a", "none"), "x");
}

TEST(Dictionary, MadeByTheCallerIsFreed) {
    const Dictionary d = made_by_hand(3);
    fill(d.get(), 2);
}

void use_and_empty(dictionary d) {
    fill(&d, 3);
    EXPECT_STREQ(dictionary_get(&d, "key2", "none"), "2");
    for (unsigned i = 0; i < 3; i++)
        dictionary_unset(&d, name(i).c_str());
    EXPECT_EQ(d.n, 0);
}

TEST(Dictionary, WorksOnArraysOfTheCallersThatLieTogether) {
    struct {
        char* in_front[64];
        char* val[128];
        char* key[128];
        unsigned hash[128];
        unsigned other_hash[128];
    } arrays{};
    use_and_empty({0, 128, arrays.val, arrays.key, arrays.hash});
    use_and_empty({0, 128, arrays.val, arrays.key, arrays.other_hash});
}

TEST(Dictionary, WorksOnASmallerRecordOfTheCallersInItsOwnArrays) {
    const Dictionary d = make(128);
    char** const key = d->val + 64;
    use_and_empty({0, 64, d->val, key, reinterpret_cast<unsigned*>(key + 64)});
}

// dump

TEST(DictionaryDump, WritesALineForEachKey) {
    const Dictionary d = make();
    dictionary_set(d.get(), "net", nullptr);
    dictionary_set(d.get(), "net:mode", "bridge");
    dictionary_set(d.get(), "a key of more than twenty bytes", "%s");
    EXPECT_EQ(dump(d.get()),
              "                 net\t[UNDEF]\n"
              "            net:mode\t[bridge]\n"
              "a key of more than twenty bytes\t[%s]\n");
}

TEST(DictionaryDump, SaysThatThereIsNothing) {
    EXPECT_EQ(dump(make().get()), "empty dictionary\n");
}

TEST(DictionaryDump, WritesNothingForNull) {
    EXPECT_EQ(dump(nullptr), "");
    dictionary_dump(make().get(), nullptr);
}

}  // namespace
