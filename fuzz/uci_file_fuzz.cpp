// uci_file_fuzz.cpp - feeds bytes to the workstation's libuci: as a configuration file, and, behind
// the first 0xff byte, as the changes staged for it.
#include <sys/stat.h>
#include <uci.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

using Context = std::unique_ptr<uci_context, decltype(&uci_free_context)>;

void require(bool condition, const char* what) {
    if (condition) return;
    fprintf(stderr, "%s\n", what);
    abort();
}

// One directory for the whole run, in memory where the machine has it.
class Directory {
  public:
    Directory() {
        if (!mkdtemp(path_)) abort();
    }
    ~Directory() {
        unlink(changes().c_str());
        rmdir(path_);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const char* path() const { return path_; }
    std::string changes() const { return std::string(path_) + "/fuzz"; }

  private:
    char path_[32] = "/tmp/uci_file_fuzz.XXXXXX";
};

Context new_context(const Directory& directory) {
    Context context(uci_alloc_context(), uci_free_context);
    uci_set_confdir(context.get(), directory.path());
    uci_set_savedir(context.get(), directory.path());
    return context;
}

uci_package* import(uci_context* ctx, std::string_view text, bool single) {
    if (text.empty()) return nullptr;
    FILE* stream = fmemopen(const_cast<char*>(text.data()), text.size(), "r");  // NOLINT: only read
    uci_package* package = nullptr;
    const int error = uci_import(ctx, stream, "fuzz", &package, single);
    fclose(stream);
    return error ? nullptr : package;
}

std::string exported(uci_context* ctx, uci_package* package) {
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    require(uci_export(ctx, stream, package, false) == UCI_OK, "the export fails");
    fclose(stream);
    std::string result(text, size);
    free(text);
    return result;
}

// What is exported reads back as itself.
void check_normal_form(const Directory& directory, const std::string& text) {
    const Context context = new_context(directory);
    uci_package* package = import(context.get(), text, true);
    require(package != nullptr, "the normal form is refused");
    require(exported(context.get(), package) == text, "the normal form changes");
}

void fuzz_file(const Directory& directory, std::string_view text, bool strict) {
    const Context context = new_context(directory);
    if (!strict) context->flags = UCI_FLAG_SAVED_DELTA;
    uci_package* package = import(context.get(), text, strict);
    if (!package) {
        char* error = nullptr;
        uci_get_errorstr(context.get(), &error, "fuzz");
        free(error);
        return;
    }
    check_normal_form(directory, exported(context.get(), package));
}

void fuzz_changes(const Directory& directory, std::string_view text) {
    FILE* stream = fopen(directory.changes().c_str(), "we");
    if (!stream) abort();
    fwrite(text.data(), 1, text.size(), stream);
    fclose(stream);

    const Context context = new_context(directory);
    uci_package* package = nullptr;
    // The changes lie where the file would be; they are read as both.
    uci_load(context.get(), "fuzz", &package);
    if (package) exported(context.get(), package);

    const Context other = new_context(directory);
    package = import(other.get(), "config a 'b'\n\toption o 1\n\tlist l 1\nconfig a\n", true);
    package->has_delta = true;
    std::string path = directory.changes();
    package->path = strdup(path.c_str());
    uci_ptr ptr = {};
    char name[] = "fuzz.b.o";
    require(uci_lookup_ptr(other.get(), &ptr, name, true) == UCI_OK, "the package is not found");
    uci_revert(other.get(), &ptr);
}

void fuzz_arguments(std::string_view text) {
    if (text.empty()) return;
    const Context context(uci_alloc_context(), uci_free_context);
    FILE* stream = fmemopen(const_cast<char*>(text.data()), text.size(), "r");  // NOLINT: only read
    char *rest = nullptr, *word = nullptr;
    while (!feof(stream) && uci_parse_argument(context.get(), stream, &rest, &word) == UCI_OK) {
        if (!*word) {
            rest = nullptr;
            continue;
        }
        std::string path = word;
        uci_ptr ptr = {};
        uci_parse_ptr(context.get(), &ptr, path.data());
    }
    fclose(stream);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Directory directory;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const size_t split = bytes.find('\xff');
    fuzz_file(directory, bytes.substr(0, split), true);
    fuzz_file(directory, bytes.substr(0, split), false);
    fuzz_arguments(bytes.substr(0, split));
    if (split != std::string_view::npos) fuzz_changes(directory, bytes.substr(split + 1));
    return 0;
}
