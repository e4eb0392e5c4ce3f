// A dictionary's operations, two bytes each, beside a table that is searched slot by slot.
#include <tq/dictionary.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void expect(bool holds) {
    if (!holds) abort();
}

class Model {
  public:
    Model() : slots_(128) {}

    void set(const std::string& key, const std::string& value) {
        size_t slot = find(key);
        for (size_t i = 0; slot == slots_.size() && i < slots_.size(); i++)
            if (!slots_[i].key) slot = i;
        if (slot == slots_.size()) slots_.resize(2 * slot);
        slots_[slot] = {key, value};
    }

    void unset(const std::string& key) {
        const size_t slot = find(key);
        if (slot < slots_.size()) slots_[slot] = {};
    }

    void expect_equal(const dictionary* d) const {
        expect(static_cast<size_t>(d->size) == slots_.size());
        int used = 0;
        for (size_t i = 0; i < slots_.size(); i++) {
            expect(slots_[i].key.has_value() == (d->key[i] != nullptr));
            if (!d->key[i]) continue;
            used++;
            expect(*slots_[i].key == d->key[i] && slots_[i].value == d->val[i]);
            expect(dictionary_get(d, d->key[i], nullptr) == d->val[i]);
        }
        expect(used == d->n);
    }

  private:
    struct Slot {
        std::optional<std::string> key;
        std::string value;
    };

    size_t find(const std::string& key) const {
        for (size_t i = 0; i < slots_.size(); i++)
            if (slots_[i].key == key) return i;
        return slots_.size();
    }

    std::vector<Slot> slots_;
};

// Empties the slot as a caller may do it.
void change_by_hand(dictionary* d, const std::string& key, Model& model) {
    for (int slot = 0; slot < d->size; slot++) {
        if (!d->key[slot] || key != d->key[slot]) continue;
        free(d->key[slot]);
        free(d->val[slot]);
        d->key[slot] = d->val[slot] = nullptr;
        d->hash[slot] = 0;
        d->n--;
        model.unset(key);
    }
    expect(!dictionary_get(d, key.c_str(), nullptr));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    dictionary* d = dictionary_new(0);
    Model model;
    for (size_t i = 0; i + 1 < size; i += 2) {
        // Few enough keys that most operations meet one, many enough to fill and double the table.
        const std::string key = std::to_string((data[i] & 1) * 256 + data[i + 1]);
        switch (data[i] >> 1 & 7) {
            case 0:
            case 1:
                dictionary_unset(d, key.c_str());
                model.unset(key);
                break;
            case 2:
                change_by_hand(d, key, model);
                break;
            case 3: {
                const dictionary copy = *d;
                expect(dictionary_get(&copy, key.c_str(), "") ==
                       dictionary_get(d, key.c_str(), ""));
                break;
            }
            default:
                dictionary_set(d, key.c_str(), std::to_string(i).c_str());
                model.set(key, std::to_string(i));
        }
    }
    model.expect_equal(d);
    dictionary_del(d);
    return 0;
}
