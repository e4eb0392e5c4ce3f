// export.cpp - packages in normal form.
#include <cstring>

#include "internal.h"

namespace uci {
namespace {

void put(FILE* stream, const char* text) {
    fputs_unlocked(text, stream);
}

void write_value(FILE* stream, const char* keyword, const char* name, const char* value) {
    put(stream, keyword);
    put(stream, name);
    put(stream, " ");
    write_quoted(stream, value);
    put(stream, "\n");
}

void write_option(FILE* stream, uci_option* option) {
    if (option->type == UCI_TYPE_STRING) {
        write_value(stream, "\toption ", option->e.name, option->v.string);
        return;
    }
    uci_element* item = nullptr;
    uci_foreach_element(&option->v.list, item) {
        write_value(stream, "\tlist ", option->e.name, item->name);
    }
}

// A type stands without quotes, except where it would not be read as it is.
void write_type(FILE* stream, const char* type) {
    if (strpbrk(type, "'\"\\#;")) {
        write_quoted(stream, type);
    } else {
        put(stream, type);
    }
}

void write_section(FILE* stream, uci_section* section, bool name_sections) {
    put(stream, "\nconfig ");
    write_type(stream, section->type);
    if (!section->anonymous || name_sections) {
        put(stream, " ");
        write_quoted(stream, section->e.name);
    }
    put(stream, "\n");
    uci_element* element = nullptr;
    uci_foreach_element(&section->options, element) write_option(stream, uci_to_option(element));
}

// One call's output stays together even where threads share the stream.
class StreamLock {
  public:
    explicit StreamLock(FILE* stream) : stream_(stream) { flockfile(stream); }
    ~StreamLock() { funlockfile(stream_); }
    StreamLock(const StreamLock&) = delete;
    StreamLock& operator=(const StreamLock&) = delete;

  private:
    FILE* stream_;
};

void export_package(FILE* stream, uci_package* package, bool header, bool name_sections) {
    if (header) {
        put(stream, "package ");
        put(stream, package->e.name);
        put(stream, "\n");
    }
    write_package(stream, package, name_sections);
}

}  // namespace

// In single quotes, where only the single quote needs an escape, outside of them.
void write_quoted(FILE* stream, const char* text) {
    putc_unlocked('\'', stream);
    for (;;) {
        const size_t plain = strcspn(text, "'");
        fwrite_unlocked(text, 1, plain, stream);
        if (text[plain] == '\0') break;
        put(stream, "'\\''");
        text += plain + 1;
    }
    putc_unlocked('\'', stream);
}

void write_package(FILE* stream, const uci_package* package, bool name_sections) {
    const StreamLock lock(stream);
    const uci_element* element = nullptr;
    uci_foreach_element(&package->sections, element) {
        write_section(stream, uci_to_section(element), name_sections);
    }
    put(stream, "\n");
}

}  // namespace uci

int uci_export(uci_context* ctx, FILE* stream, uci_package* package, bool header) {
    if (!ctx || !stream) return uci::reject(ctx);
    const bool name_sections = (ctx->flags & UCI_FLAG_EXPORT_NAME) != 0;
    if (package) {
        uci::export_package(stream, package, header, name_sections);
    } else {
        uci_element* element = nullptr;
        uci_foreach_element(&ctx->root, element) {
            uci::export_package(stream, uci_to_package(element), header, name_sections);
        }
    }
    return uci::finish(ctx, ferror(stream) ? UCI_ERR_IO : UCI_OK);
}
