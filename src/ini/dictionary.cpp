#include "tq/dictionary.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "foundation/file.h"

namespace {

constexpr int kMinSize = 128;
constexpr int kMaxSize = 1 << 26;  // whose arrays 32 bits can address
constexpr int kNone = -1;

// The free slots, so that the first is found in as many steps as the table has levels: a bit a
// slot, above it a bit for each word that is not zero, and so on up to one word.
class FreeSlots {
  public:
    static size_t words_for(size_t slots) {
        size_t total = 0;
        do {
            slots = words_of_level(slots);
            total += slots;
        } while (slots > 1);
        return total;
    }

    // All of them are free; words, of words_for(slots), is where they are kept.
    void start(uint32_t* words, size_t slots) {
        levels_ = 0;
        do {
            level_[levels_++] = words;
            memset(words, 0xff, slots / kBits * sizeof(*words));
            if (slots % kBits != 0) words[slots / kBits] = bit(slots) - 1;
            slots = words_of_level(slots);
            words += slots;
        } while (slots > 1);
    }

    void give(unsigned slot) {
        for (int level = 0; level < levels_; level++, slot /= kBits) {
            level_[level][slot / kBits] |= bit(slot);
        }
    }

    void take(unsigned slot) {
        for (int level = 0; level < levels_; level++, slot /= kBits) {
            level_[level][slot / kBits] &= ~bit(slot);
            if (level_[level][slot / kBits] != 0) return;
        }
    }

    [[nodiscard]] int first() const {
        unsigned slot = 0;
        for (int level = levels_; level-- > 0;) {
            const uint32_t word = level_[level][slot];
            if (word == 0) return kNone;
            slot = slot * kBits + static_cast<unsigned>(std::countr_zero(word));
        }
        return static_cast<int>(slot);
    }

  private:
    static constexpr unsigned kBits = 32;
    static constexpr int kMostLevels = 6;  // for 2^30 slots

    static size_t words_of_level(size_t bits) { return (bits + kBits - 1) / kBits; }
    static uint32_t bit(size_t slot) { return uint32_t{1} << slot % kBits; }

    uint32_t* level_[kMostLevels];
    int levels_;
};

// What the slots hold, by hash. It stands in front of the three arrays, in one allocation with
// them: so a copy of the record still leads to it.
struct Index {
    char** val;         // that of the record which the index belongs to
    int entries;        // the record's n when the two were last in step
    unsigned mask;      // number of buckets - 1
    unsigned* buckets;  // slot + 1, or 0; a collision goes into the next one
    FreeSlots free_slots;
};

// At most half of the buckets are in use, so that a search soon comes to an empty one.
size_t bucket_count(int size) {
    return std::bit_ceil(static_cast<size_t>(size) * 2);
}

// Null for a record whose arrays are not the library's: those of no other lie so close together.
Index* index_of(const dictionary* d) {
    if (d->key != d->val + d->size) return nullptr;
    if (d->hash != reinterpret_cast<unsigned*>(d->key + d->size)) return nullptr;
    Index* index = reinterpret_cast<Index*>(d->val) - 1;
    return index->val == d->val ? index : nullptr;
}

// Null also where the caller has filled or emptied slots.
const Index* index_in_step(const dictionary* d) {
    const Index* index = index_of(d);
    return index && index->entries == d->n ? index : nullptr;
}

void add_to_index(Index* index, const dictionary* d, unsigned slot) {
    unsigned bucket = d->hash[slot] & index->mask;
    while (index->buckets[bucket] != 0)
        bucket = (bucket + 1) & index->mask;
    index->buckets[bucket] = slot + 1;
    index->free_slots.take(slot);
}

// Moves what a collision has put behind the bucket forward into the hole, as far as each entry is
// still found from where its hash points.
void close_hole(Index* index, const dictionary* d, unsigned hole) {
    unsigned* buckets = index->buckets;
    for (unsigned next = hole;;) {
        next = (next + 1) & index->mask;
        if (buckets[next] == 0) break;
        const unsigned home = d->hash[buckets[next] - 1] & index->mask;
        if (((next - home) & index->mask) < ((next - hole) & index->mask)) continue;
        buckets[hole] = buckets[next];
        hole = next;
    }
    buckets[hole] = 0;
}

void remove_from_index(Index* index, const dictionary* d, unsigned slot) {
    unsigned bucket = d->hash[slot] & index->mask;
    while (index->buckets[bucket] != slot + 1)
        bucket = (bucket + 1) & index->mask;
    close_hole(index, d, bucket);
    index->free_slots.give(slot);
}

// Gives the record new, empty arrays with an index in front, which is not in step yet; false when
// memory runs out.
bool allocate_arrays(dictionary* d, int size) {
    if (size > kMaxSize) return false;
    const auto slots = static_cast<size_t>(size);
    const size_t bytes = sizeof(Index) + slots * (2 * sizeof(char*) + sizeof(unsigned)) +
                         bucket_count(size) * sizeof(unsigned) +
                         FreeSlots::words_for(slots) * sizeof(uint32_t);
    auto* index = static_cast<Index*>(calloc(1, bytes));
    if (!index) return false;
    d->size = size;
    d->val = reinterpret_cast<char**>(index + 1);
    d->key = d->val + size;
    d->hash = reinterpret_cast<unsigned*>(d->key + size);
    index->val = d->val;
    index->mask = static_cast<unsigned>(bucket_count(size) - 1);
    index->buckets = d->hash + size;
    index->entries = kNone;
    return true;
}

void free_arrays(const dictionary* d) {
    if (Index* index = index_of(d)) {
        free(index);
        return;
    }
    free(d->val);
    free(d->key);
    free(d->hash);
}

// Before a change: takes notice of what the caller has changed.
void bring_in_step(const dictionary* d) {
    Index* index = index_of(d);
    if (!index || index->entries == d->n) return;
    const auto size = static_cast<unsigned>(d->size);
    const size_t buckets = size_t{index->mask} + 1;
    memset(index->buckets, 0, buckets * sizeof(*index->buckets));
    index->free_slots.start(index->buckets + buckets, size);
    for (unsigned slot = 0; slot < size; slot++) {
        if (d->key[slot]) add_to_index(index, d, slot);
    }
    index->entries = d->n;
}

bool grow(dictionary* d) {
    if (d->size > kMaxSize / 2) return false;
    const dictionary old = *d;
    if (!allocate_arrays(d, std::max(kMinSize, old.size * 2))) return false;
    std::copy_n(old.val, old.size, d->val);
    std::copy_n(old.key, old.size, d->key);
    std::copy_n(old.hash, old.size, d->hash);
    bring_in_step(d);
    free_arrays(&old);
    return true;
}

bool holds(const dictionary* d, unsigned slot, const char* key, unsigned hash) {
    return d->hash[slot] == hash && d->key[slot] && strcmp(d->key[slot], key) == 0;
}

int find_by_slot(const dictionary* d, const char* key, unsigned hash) {
    for (int slot = 0; slot < d->size; slot++) {
        if (holds(d, static_cast<unsigned>(slot), key, hash)) return slot;
    }
    return kNone;
}

// The key's slot, or kNone.
int find(const dictionary* d, const char* key, unsigned hash) {
    const Index* index = index_in_step(d);
    if (!index) return find_by_slot(d, key, hash);
    for (unsigned bucket = hash & index->mask; index->buckets[bucket] != 0;
         bucket = (bucket + 1) & index->mask) {
        const unsigned slot = index->buckets[bucket] - 1;
        if (holds(d, slot, key, hash)) return static_cast<int>(slot);
    }
    return kNone;
}

// kNone where the table is full.
int first_free(const dictionary* d) {
    if (const Index* index = index_in_step(d)) return index->free_slots.first();
    char** const end = d->key + d->size;
    char** const found = std::ranges::find(d->key, end, nullptr);
    return found == end ? kNone : static_cast<int>(found - d->key);
}

// The slot of a new key, whose value is null; kNone when memory runs out.
int add(dictionary* d, const char* key, unsigned hash) {
    tq::HeapText copy(strdup(key));
    int slot = first_free(d);
    const int end = d->size;
    if (!copy || (slot == kNone && !grow(d))) return kNone;
    if (slot == kNone) slot = end;
    d->key[slot] = copy.release();
    d->val[slot] = nullptr;
    d->hash[slot] = hash;
    d->n++;
    if (Index* index = index_of(d)) {
        add_to_index(index, d, static_cast<unsigned>(slot));
        index->entries = d->n;
    }
    return slot;
}

}  // namespace

unsigned dictionary_hash(const char* key) {
    unsigned hash = 0;
    if (!key) return hash;
    for (; *key; key++) {
        hash += static_cast<unsigned>(static_cast<signed char>(*key));
        hash += hash << 10;
        hash ^= hash >> 6;
    }
    hash += hash << 3;
    hash ^= hash >> 11;
    hash += hash << 15;
    return hash;
}

dictionary* dictionary_new(int size) {
    auto* d = static_cast<dictionary*>(malloc(sizeof(dictionary)));
    if (!d) return nullptr;
    d->n = 0;
    if (!allocate_arrays(d, std::max(kMinSize, size))) {
        free(d);
        return nullptr;
    }
    bring_in_step(d);
    return d;
}

void dictionary_del(dictionary* d) {
    if (!d) return;
    for (int slot = 0; slot < d->size; slot++) {
        free(d->key[slot]);
        free(d->val[slot]);
    }
    free_arrays(d);
    free(d);
}

char* dictionary_get(const dictionary* d, const char* key, const char* def) {
    const int slot = d && key ? find(d, key, dictionary_hash(key)) : kNone;
    return slot == kNone ? const_cast<char*>(def) : d->val[slot];
}

int dictionary_set(dictionary* d, const char* key, const char* val) {
    if (!d || !key) return -1;
    bring_in_step(d);
    const unsigned hash = dictionary_hash(key);
    tq::HeapText copy(val ? strdup(val) : nullptr);
    if (val && !copy) return -1;
    int slot = find(d, key, hash);
    if (slot == kNone) slot = add(d, key, hash);
    if (slot == kNone) return -1;
    free(d->val[slot]);
    d->val[slot] = copy.release();
    return 0;
}

void dictionary_unset(dictionary* d, const char* key) {
    if (!d || !key) return;
    bring_in_step(d);
    const int slot = find(d, key, dictionary_hash(key));
    if (slot == kNone) return;
    Index* index = index_of(d);
    if (index) remove_from_index(index, d, static_cast<unsigned>(slot));
    free(std::exchange(d->key[slot], nullptr));
    free(std::exchange(d->val[slot], nullptr));
    d->hash[slot] = 0;
    d->n--;
    if (index) index->entries = d->n;
}

void dictionary_dump(const dictionary* d, FILE* out) {
    if (!d || !out) return;
    if (d->n < 1) {
        fputs("empty dictionary\n", out);
        return;
    }
    for (int slot = 0; slot < d->size; slot++) {
        if (!d->key[slot]) continue;
        fprintf(out, "%20s\t[%s]\n", d->key[slot], d->val[slot] ? d->val[slot] : "UNDEF");
    }
}
