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

// Adds a member; the key is text like any other. False when memory runs out.
bool json_add(json_object* object, std::string_view key, Json value);

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

    // A JSON document of the command's own making, printed at once.
    void document(const Json& json);

    // Prints what is left. False when standard output has lost something, errno says why.
    bool finish();

  private:
    void add(std::string_view key, Json value);

    bool json_ = false;
    bool printed_ = false;
    bool lost_ = false;
    Json object_;
};

}  // namespace tqctl
