// output.h - a command's data on standard output, as text or as JSON.
#pragma once

#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace tqctl {

struct FreeMemory {
    void operator()(void* memory) const { free(memory); }
};
using HeapText = std::unique_ptr<char, FreeMemory>;

struct PutJson {
    void operator()(json_object* object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, PutJson>;

// A JSON string. Each byte that is not UTF-8 becomes U+FFFD. Null when memory runs out.
Json json_text(std::string_view text);

Json json_number(int64_t number);
Json json_bool(bool truth);

// Adds a member, or an element; a key is text like any other. False, with nothing added, for a null
// value: what has none is left out, or memory has run out.
bool json_add(json_object* object, std::string_view key, Json value);
bool json_append(json_object* array, Json value);

// A member as a line shows it: "-" where there is none.
const char* text_of(const Json& object, const char* key);

// What value() and member() are given is a line of text each, or together the one JSON object that
// finish() prints: {} for a command that had nothing to say.
class Output {
  public:
    void use_json() { json_ = true; }
    [[nodiscard]] bool is_json() const { return json_; }

    // A line with the value alone; in JSON the key names it.
    void value(std::string_view key, std::string_view text);
    void value(std::string_view key, int64_t number);

    // A line "key=value".
    void member(std::string_view key, std::string_view text);
    void member(std::string_view key, int64_t number);

    // One of the values that were asked for: a value where it is the only one, else a member.
    void entry(bool is_only, std::string_view key, std::string_view text) {
        is_only ? value(key, text) : member(key, text);
    }

    // An object: its members a line each, those of an object in it with its key and a dot in front.
    void members(const Json& object);

    // A JSON document of the command's own making, printed at once.
    void document(const Json& json);

    // Something did not fit into memory: finish() then fails.
    void lose() { lost_ = true; }

    // Prints what is left. False when standard output has lost something, errno says why.
    bool finish();

  private:
    void add(std::string_view key, Json value);

    bool json_ = false;
    bool printed_ = false;
    bool lost_ = false;
    Json object_;
};

// Each item's row is a line of text, or they are together one JSON array: [] where there are none.
class Rows {
  public:
    explicit Rows(Output& output)
        : output_(output), array_(output.is_json() ? json_object_new_array() : nullptr) {}
    ~Rows() {
        if (output_.is_json()) output_.document(array_);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    template <typename Item, typename Describe, typename Print>
    void add(const Item& item, Describe describe, Print print) {
        if (!output_.is_json()) return print(item);
        if (!json_append(array_.get(), describe(item))) output_.lose();
    }

  private:
    Output& output_;
    Json array_;
};

}  // namespace tqctl
