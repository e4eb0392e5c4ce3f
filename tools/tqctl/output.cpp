#include "output.h"

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

namespace tqctl {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

bool is_within(unsigned char byte, unsigned char first, unsigned char last) {
    return byte >= first && byte <= last;
}

// The length of the character at the front of text, 0 where its bytes are not UTF-8. The range of
// the second byte keeps overlong forms, surrogates and what is beyond U+10FFFF out.
size_t character_length(std::string_view text) {
    struct Form {
        unsigned char first;
        unsigned char last;
        unsigned char length;
        unsigned char second_first;
        unsigned char second_last;
    };
    static constexpr Form kForms[] = {
        {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF},
        {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF},
        {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
    };
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x80) return 1;
    for (const Form& form : kForms) {
        if (!is_within(byte(0), form.first, form.last)) continue;
        if (text.size() < form.length) return 0;
        if (!is_within(byte(1), form.second_first, form.second_last)) return 0;
        for (size_t i = 2; i < form.length; i++) {
            if (!is_within(byte(i), 0x80, 0xBF)) return 0;
        }
        return form.length;
    }
    return 0;
}

// Text with each byte that is not UTF-8 replaced.
class Utf8 {
  public:
    explicit Utf8(std::string_view text);

    explicit operator bool() const { return text_ != nullptr; }
    [[nodiscard]] const char* c_str() const { return text_.get(); }
    [[nodiscard]] int size() const { return static_cast<int>(size_); }

  private:
    HeapText text_;
    size_t size_ = 0;
};

// One that is too long for JSON, or for the memory, stays null.
Utf8::Utf8(std::string_view text) {
    if (text.size() > INT_MAX / kReplacement.size() - 1) return;
    text_.reset(static_cast<char*>(malloc(text.size() * kReplacement.size() + 1)));
    if (!text_) return;
    while (!text.empty()) {
        const size_t length = character_length(text);
        const std::string_view piece =
            length > 0 ? std::string_view(text.data(), length) : kReplacement;
        memcpy(text_.get() + size_, piece.data(), piece.size());
        size_ += piece.size();
        text.remove_prefix(length > 0 ? length : 1);
    }
    text_.get()[size_] = '\0';
}

void print(std::string_view text) {
    fwrite(text.data(), 1, text.size(), stdout);
}

void print_members(json_object* object, const char* prefix) {
    json_object_object_foreach(object, key, value) {
        char path[128];
        snprintf(path, sizeof(path), "%s%s", prefix, key);
        if (json_object_is_type(value, json_type_object)) {
            snprintf(path, sizeof(path), "%s%s.", prefix, key);
            print_members(value, path);
        } else {
            printf("%s=%s\n", path, json_object_get_string(value));
        }
    }
}

}  // namespace

Json json_text(std::string_view text) {
    const Utf8 utf8(text);
    return Json(utf8 ? json_object_new_string_len(utf8.c_str(), utf8.size()) : nullptr);
}

Json json_number(int64_t number) {
    return Json(json_object_new_int64(number));
}

Json json_bool(bool truth) {
    return Json(json_object_new_boolean(truth));
}

bool json_add(json_object* object, std::string_view key, Json value) {
    const Utf8 utf8(key);
    if (!object || !utf8 || !value) return false;
    if (json_object_object_add(object, utf8.c_str(), value.get()) != 0) return false;
    (void)value.release();
    return true;
}

bool json_append(json_object* array, Json value) {
    if (!array || !value || json_object_array_add(array, value.get()) != 0) return false;
    (void)value.release();
    return true;
}

const char* text_of(const Json& object, const char* key) {
    json_object* value = nullptr;
    return json_object_object_get_ex(object.get(), key, &value) ? json_object_get_string(value)
                                                                : "-";
}

void Output::add(std::string_view key, Json value) {
    if (!object_) object_.reset(json_object_new_object());
    if (!json_add(object_.get(), key, std::move(value))) lost_ = true;
}

void Output::value(std::string_view key, std::string_view text) {
    if (json_) return add(key, json_text(text));
    print(text);
    print("\n");
}

void Output::value(std::string_view key, int64_t number) {
    if (json_) return add(key, json_number(number));
    printf("%" PRId64 "\n", number);
}

void Output::member(std::string_view key, std::string_view text) {
    if (json_) return add(key, json_text(text));
    print(key);
    print("=");
    print(text);
    print("\n");
}

void Output::member(std::string_view key, int64_t number) {
    if (json_) return add(key, json_number(number));
    print(key);
    printf("=%" PRId64 "\n", number);
}

void Output::members(const Json& object) {
    if (json_) return document(object);
    print_members(object.get(), "");
}

void Output::document(const Json& json) {
    constexpr int kFlags = JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE;
    const char* text = json_object_to_json_string_ext(json.get(), kFlags);
    if (!text) lost_ = true;
    print(text ? text : "{}");
    print("\n");
    fflush(stdout);
    printed_ = true;
}

bool Output::finish() {
    if (json_ && object_) document(object_);
    if (json_ && !printed_) print("{}\n");
    if (fflush(stdout) != 0) return false;
    if (lost_) errno = ENOMEM;
    if (ferror(stdout)) errno = EIO;
    return !lost_ && !ferror(stdout);
}

}  // namespace tqctl
