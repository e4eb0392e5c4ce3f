#include "tq/iniparser.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"

namespace {

using tq::LineReader;
using tq::NumberReader;

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
constexpr char kComments[] = ";#";

// The longest name that the functions take, and the longest line of a file with its line feed.
constexpr size_t kNameLength = 1024;
constexpr size_t kLineLength = LineReader::kPiece;

// A name as the dictionary knows it: cut where it is too long, and nothing else.
class Name {
  public:
    explicit Name(const char* text) : text_(text) {
        if (!text || strnlen(text, kNameLength + 1) <= kNameLength) return;
        memcpy(cut_, text, kNameLength);
        cut_[kNameLength] = '\0';
        text_ = cut_;
    }

    [[nodiscard]] const char* c_str() const { return text_; }

  private:
    const char* text_;
    char cut_[kNameLength + 1];
};

bool is_section(const char* key) {
    return key && !strchr(key, ':');
}

char* skip_blanks(char* text) {
    while (NumberReader::is_blank(*text))
        text++;
    return text;
}

// Cuts the blanks at both ends.
char* strip(char* text) {
    text = skip_blanks(text);
    char* end = text + strlen(text);
    while (end > text && NumberReader::is_blank(end[-1]))
        end--;
    *end = '\0';
    return text;
}

bool is_quote(char c) {
    return c == '"' || c == '\'';
}

// The value in what stands behind "key =".
char* parse_value(char* text) {
    text = skip_blanks(text);
    const char quote[] = {*text, '\0'};
    const char* ends = kComments;
    if (is_quote(*text) && text[1] != '\0' && text[1] != *text) {
        text++;
        ends = quote;
    }
    text[strcspn(text, ends)] = '\0';
    text = strip(text);
    // A pair of quotes stands for nothing.
    if (is_quote(*text) && text[1] == *text && text[2] == '\0') *text = '\0';
    return text;
}

void say_out_of_memory() {
    fputs("iniparser: memory allocation failure\n", stderr);
}

// Puts the entries of a file into a dictionary, and says on standard error what is wrong with it.
class Loader {
  public:
    Loader(const char* path, dictionary* d) : path_(path), dictionary_(d) {}

    // False where something is wrong.
    bool load();

  private:
    bool append(const char* piece, size_t length);
    bool is_continued();
    bool take_line();
    bool take_section(char* text);
    bool take_entry(char* text);
    bool store(const char* val);
    void complain();

    const char* path_;
    dictionary* dictionary_;
    int number_ = 0;
    bool is_valid_ = true;
    size_t used_ = 0;
    size_t section_length_ = 0;
    char line_[kLineLength + 1];
    char name_[2 * kLineLength] = "";  // section:key
};

bool Loader::load() {
    const tq::UniqueFd file(tq::open_for_reading(path_));
    LineReader lines(file.get());
    lines.skip(kByteOrderMark);
    while (const char* piece = lines.next()) {
        number_++;
        if (!append(piece, lines.length())) {
            fprintf(stderr, "iniparser: input line too long in %s (%d)\n", path_, number_);
            return false;
        }
        if (is_continued()) continue;
        if (!take_line()) {
            say_out_of_memory();
            return false;
        }
        used_ = 0;
    }
    if (lines.failed()) fprintf(stderr, "iniparser: cannot open %s\n", path_);
    return is_valid_ && !lines.failed();
}

// Puts the piece behind what it continues, without the blanks at its end; false where it is not a
// whole line.
bool Loader::append(const char* piece, size_t length) {
    const size_t room = kLineLength - used_;
    if (length > room || memchr(piece, '\0', length)) return false;
    if (length == room && piece[length - 1] != '\n') return false;
    memcpy(&line_[used_], piece, length);
    used_ += length;
    while (used_ > 0 && NumberReader::is_blank(line_[used_ - 1]))
        used_--;
    line_[used_] = '\0';
    return true;
}

// The next line takes the place of the backslash.
bool Loader::is_continued() {
    if (used_ == 0 || line_[used_ - 1] != '\\') return false;
    used_--;
    return true;
}

// False when memory runs out.
bool Loader::take_line() {
    char* text = skip_blanks(line_);
    if (*text == '\0' || strchr(kComments, *text)) return true;
    if (*text == '[' && line_[used_ - 1] == ']') return take_section(text + 1);
    return take_entry(text);
}

bool Loader::take_section(char* text) {
    text[strcspn(text, "]")] = '\0';
    // Without a name it is the last section once more.
    if (*text) {
        text = strip(text);
        section_length_ = strlen(text);
        memcpy(name_, text, section_length_);
    }
    name_[section_length_] = '\0';
    return store(nullptr);
}

bool Loader::take_entry(char* text) {
    char* equals = strchr(text, '=');
    if (!equals || equals == text) {
        complain();
        return true;
    }
    *equals = '\0';
    const char* key = strip(text);
    name_[section_length_] = ':';
    memcpy(&name_[section_length_ + 1], key, strlen(key) + 1);
    return store(parse_value(equals + 1));
}

bool Loader::store(const char* val) {
    return dictionary_set(dictionary_, name_, val) == 0;
}

void Loader::complain() {
    fprintf(stderr, "iniparser: syntax error in %s (%d):\n-> %s\n", path_, number_, line_);
    is_valid_ = false;
}

// A section with what belongs to it.
void dump_section(const dictionary* d, const char* section, FILE* f) {
    const size_t length = strlen(section);
    fprintf(f, "\n[%s]\n", section);
    for (int slot = 0; slot < d->size; slot++) {
        const char* key = d->key[slot];
        if (!key || strncmp(key, section, length) != 0 || key[length] != ':') continue;
        fprintf(f, "%-30s = %s\n", key + length + 1, d->val[slot] ? d->val[slot] : "");
    }
    fputc('\n', f);
}

}  // namespace

int iniparser_getnsec(const dictionary* d) {
    if (!d) return -1;
    return static_cast<int>(std::count_if(d->key, d->key + d->size, is_section));
}

char* iniparser_getsecname(const dictionary* d, int n) {
    if (!d || n < 0) return nullptr;
    for (int slot = 0; slot < d->size; slot++) {
        if (is_section(d->key[slot]) && n-- == 0) return d->key[slot];
    }
    return nullptr;
}

void iniparser_dump(const dictionary* d, FILE* f) {
    if (!d || !f) return;
    for (int slot = 0; slot < d->size; slot++) {
        if (!d->key[slot]) continue;
        if (d->val[slot]) {
            fprintf(f, "%s=%s\n", d->key[slot], d->val[slot]);
        } else {
            fprintf(f, "[%s]\n", d->key[slot]);
        }
    }
}

void iniparser_dump_ini(const dictionary* d, FILE* f) {
    if (!d || !f) return;
    const bool has_sections = iniparser_getnsec(d) > 0;
    for (int slot = 0; slot < d->size; slot++) {
        if (!d->key[slot]) continue;
        if (!has_sections) {
            fprintf(f, "%s = %s\n", d->key[slot], tq::printable(d->val[slot]));
        } else if (is_section(d->key[slot])) {
            dump_section(d, d->key[slot], f);
        }
    }
    if (has_sections) fputc('\n', f);
}

char* iniparser_getstring(const dictionary* d, const char* key, const char* def) {
    return dictionary_get(d, Name(key).c_str(), def);
}

int iniparser_getint(const dictionary* d, const char* key, int notfound) {
    const char* text = iniparser_getstring(d, key, nullptr);
    if (!text) return notfound;
    // What a long holds is not the same on every machine; what an int holds is.
    return static_cast<int>(std::clamp<long>(strtol(text, nullptr, 0), INT_MIN, INT_MAX));
}

double iniparser_getdouble(const dictionary* d, const char* key, double notfound) {
    const char* text = iniparser_getstring(d, key, nullptr);
    return text ? strtod(text, nullptr) : notfound;
}

int iniparser_getboolean(const dictionary* d, const char* key, int notfound) {
    const char* text = iniparser_getstring(d, key, nullptr);
    if (!text || !*text) return notfound;
    if (strchr("yYtT1", *text)) return 1;
    return strchr("nNfF0", *text) ? 0 : notfound;
}

int iniparser_find_entry(const dictionary* d, const char* entry) {
    static const char kNotThere[] = "";
    return iniparser_getstring(d, entry, kNotThere) == kNotThere ? 0 : 1;
}

int iniparser_set(dictionary* d, const char* entry, const char* val) {
    return dictionary_set(d, Name(entry).c_str(), val);
}

void iniparser_unset(dictionary* d, const char* entry) {
    dictionary_unset(d, Name(entry).c_str());
}

dictionary* iniparser_load(const char* ininame) {
    if (!ininame) return nullptr;
    dictionary* d = dictionary_new(0);
    if (!d) say_out_of_memory();
    if (d && Loader(ininame, d).load()) return d;
    iniparser_freedict(d);
    return nullptr;
}

void iniparser_freedict(dictionary* d) {
    dictionary_del(d);
}

void iniparser_dump_append(const dictionary* d, FILE* f) {
    if (!d || !f) return;
    for (int slot = 0; slot < d->size; slot++) {
        if (!d->key[slot]) continue;
        if (d->val[slot]) {
            fprintf(f, "%s       %s\n", d->key[slot], d->val[slot]);
        } else {
            fprintf(f, "%s=UNDEF\n", d->key[slot]);
        }
    }
}
