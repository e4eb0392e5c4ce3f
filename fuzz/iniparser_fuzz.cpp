// The loader: any file is loaded or refused, and what was loaded is what its dump reads back as.
#include <tq/iniparser.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void expect(bool holds) {
    if (!holds) abort();
}

// A file that the loader opens by its path.
class InputFile {
  public:
    InputFile() { expect(mkstemp(path_) >= 0); }
    ~InputFile() { unlink(path_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const char* with(const void* data, size_t size) {
        FILE* file = fopen(path_, "w");
        expect(file && fwrite(data, 1, size, file) == size);
        fclose(file);
        return path_;
    }

  private:
    char path_[32] = "/tmp/iniparser_fuzz.XXXXXX";
};

void ask(const dictionary* d) {
    const int sections = iniparser_getnsec(d);
    for (int n = -1; n <= sections; n++)
        expect((iniparser_getsecname(d, n) != nullptr) == (n >= 0 && n < sections));
    int used = 0;
    for (int slot = 0; slot < d->size; slot++) {
        const char* key = d->key[slot];
        if (!key) continue;
        used++;
        expect(d->hash[slot] == dictionary_hash(key));
        expect(dictionary_get(d, key, "") == d->val[slot]);
        if (strlen(key) > 1024) continue;
        expect(iniparser_find_entry(d, key) == 1);
        expect(iniparser_getstring(d, key, "") == d->val[slot]);
        iniparser_getint(d, key, 0);
        iniparser_getdouble(d, key, 0);
        iniparser_getboolean(d, key, 0);
    }
    expect(used == d->n);
}

// Entries whose lines read as what they are: a colon in a name would make another section's of
// them, and a line in brackets is a section.
bool is_plain(const dictionary* d) {
    for (int slot = 0; slot < d->size; slot++) {
        const char* key = d->key[slot];
        const char* val = d->val[slot];
        if (!key) continue;
        const char* colon = strchr(key, ':');
        if (!*key || key == colon || (colon && (!val || strchr(colon + 1, ':')))) return false;
        if (val && (strpbrk(val, ";#\\\"'") || strlen(key) + strlen(val) > 900)) return false;
        if (colon && colon[1] == '[' && *val && val[strlen(val) - 1] == ']') return false;
    }
    return true;
}

std::string dump(const dictionary* d) {
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    iniparser_dump_ini(d, stream);
    fclose(stream);
    std::string result(text, size);
    free(text);
    return result;
}

void expect_to_read_back(InputFile& file, const dictionary* d) {
    const std::string text = dump(d);
    dictionary* back = iniparser_load(file.with(text.data(), text.size()));
    expect(back && back->n == d->n);
    for (int slot = 0; slot < d->size; slot++) {
        if (!d->key[slot]) continue;
        const char* val = dictionary_get(back, d->key[slot], "(none)");
        expect(!val == !d->val[slot] && (!val || strcmp(val, d->val[slot]) == 0));
    }
    iniparser_freedict(back);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static InputFile file;
    dictionary* d = iniparser_load(file.with(data, size));
    if (!d) return 0;
    ask(d);
    if (is_plain(d) && iniparser_getnsec(d) > 0) expect_to_read_back(file, d);
    iniparser_freedict(d);
    return 0;
}
