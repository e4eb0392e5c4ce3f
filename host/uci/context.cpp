// context.cpp - contexts, their directories, and the texts of errors.
#include <cstring>
#include <new>

#include "internal.h"
#include "lexer.h"

namespace uci {
namespace {

constexpr const char* kErrorTexts[] = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};
static_assert(sizeof(kErrorTexts) / sizeof(*kErrorTexts) == UCI_ERR_LAST);

int replace_directory(char** directory, const char* value) {
    char* copy = strdup(value);
    if (!copy) return UCI_ERR_MEM;
    free(*directory);
    *directory = copy;
    return UCI_OK;
}

// The directory that changes are staged in is searched last, so that it has the last word.
int search_last(uci_context* ctx, const char* directory) {
    uci_element* element = find_element(&ctx->delta_path, directory);
    if (!element) element = new_element(UCI_TYPE_PATH, directory);
    if (!element) return UCI_ERR_MEM;
    list_remove(&element->list);
    list_append(&ctx->delta_path, &element->list);
    return UCI_OK;
}

int search_before_last(uci_context* ctx, const char* directory) {
    if (find_element(&ctx->delta_path, directory)) return UCI_ERR_DUPLICATE;
    uci_element* element = new_element(UCI_TYPE_PATH, directory);
    if (!element) return UCI_ERR_MEM;
    list_insert_after(ctx->delta_path.prev->prev, &element->list);
    return UCI_OK;
}

int set_savedir(uci_context* ctx, const char* directory) {
    OwnedText copy(strdup(directory));
    if (!copy) return UCI_ERR_MEM;
    if (const int error = search_last(ctx, directory)) return error;
    free(ctx->savedir);
    ctx->savedir = copy.release();
    return UCI_OK;
}

void free_arguments(Context& context) {
    if (context.arguments) context.arguments->~Lexer();
    free(context.arguments);
    context.arguments = nullptr;
}

char kBackendName[] = "file";

void init(Context& context) {
    uci_context& base = context.base;
    list_init(&base.root);
    list_init(&base.delta_path);
    list_init(&base.backends);
    base.flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);

    uci_element& backend = context.file_backend.e;
    backend.type = UCI_TYPE_BACKEND;
    backend.name = kBackendName;
    list_append(&base.backends, &backend.list);
    base.backend = &context.file_backend;
}

int describe(char** text, uci_context* ctx, const char* prefix) {
    const int error = ctx ? ctx->err : UCI_ERR_INVAL;
    const char* known = kErrorTexts[error >= 0 && error < UCI_ERR_LAST ? error : UCI_ERR_UNKNOWN];
    const char* separator = prefix ? ": " : "";
    if (!prefix) prefix = "";
    if (error != UCI_ERR_PARSE || !ctx->pctx) {
        return asprintf(text, "%s%s%s", prefix, separator, known);
    }
    const uci_parse_context& place = *ctx->pctx;
    return asprintf(text, "%s%s%s (%s) at line %d, byte %zu", prefix, separator, known,
                    place.reason, place.line, place.byte);
}

}  // namespace

void begin(uci_context* ctx) {
    ctx->err = UCI_OK;
    ctx->pctx = nullptr;
}

int finish(uci_context* ctx, int result) {
    ctx->err = result;
    return result;
}

int reject(uci_context* ctx) {
    return ctx ? finish(ctx, UCI_ERR_INVAL) : UCI_ERR_INVAL;
}

Lexer* arguments_of(uci_context* ctx, FILE* stream) {
    Context& context = context_of(ctx);
    if (context.arguments && context.arguments->stream() != stream) free_arguments(context);
    if (!context.arguments) {
        void* block = malloc(sizeof(Lexer));
        if (block) context.arguments = new (block) Lexer(stream);
    }
    return context.arguments;
}

}  // namespace uci

uci_context* uci_alloc_context() {
    auto* context = static_cast<uci::Context*>(calloc(1, sizeof(uci::Context)));
    if (!context) return nullptr;
    uci::init(*context);
    uci_context* ctx = &context->base;
    if (uci_set_confdir(ctx, UCI_CONFDIR) == UCI_OK &&
        uci_set_conf2dir(ctx, UCI_CONF2DIR) == UCI_OK &&
        uci_set_savedir(ctx, UCI_SAVEDIR) == UCI_OK) {
        return ctx;
    }
    uci_free_context(ctx);
    return nullptr;
}

void uci_free_context(uci_context* ctx) {
    if (!ctx) return;
    uci_element *element = nullptr, *next = nullptr;
    uci_foreach_element_safe(&ctx->root, next, element) {
        uci::free_package(uci_to_package(element));
    }
    uci::free_elements(&ctx->delta_path);
    uci::free_arguments(uci::context_of(ctx));
    free(ctx->confdir);
    free(ctx->conf2dir);
    free(ctx->savedir);
    free(&uci::context_of(ctx));
}

int uci_set_confdir(uci_context* ctx, const char* dir) {
    if (!ctx || !dir) return uci::reject(ctx);
    return uci::finish(ctx, uci::replace_directory(&ctx->confdir, dir));
}

int uci_set_conf2dir(uci_context* ctx, const char* dir) {
    if (!ctx) return UCI_ERR_INVAL;
    if (dir) return uci::finish(ctx, uci::replace_directory(&ctx->conf2dir, dir));
    free(ctx->conf2dir);
    ctx->conf2dir = nullptr;
    return uci::finish(ctx, UCI_OK);
}

int uci_set_savedir(uci_context* ctx, const char* dir) {
    if (!ctx || !dir) return uci::reject(ctx);
    return uci::finish(ctx, uci::set_savedir(ctx, dir));
}

int uci_add_delta_path(uci_context* ctx, const char* dir) {
    if (!ctx || !dir) return uci::reject(ctx);
    return uci::finish(ctx, uci::search_before_last(ctx, dir));
}

int uci_set_backend(uci_context* ctx, const char* name) {
    if (!ctx || !name) return uci::reject(ctx);
    const bool known = strcmp(name, ctx->backend->e.name) == 0;
    return uci::finish(ctx, known ? UCI_OK : UCI_ERR_NOTFOUND);
}

void uci_get_errorstr(uci_context* ctx, char** dest, const char* prefix) {
    char* text = nullptr;
    const bool described = uci::describe(&text, ctx, prefix) >= 0;
    if (dest) {
        *dest = described ? text : nullptr;
        return;
    }
    if (!described) return;
    fprintf(stderr, "%s\n", text);
    free(text);
}

void uci_perror(uci_context* ctx, const char* prefix) {
    uci_get_errorstr(ctx, nullptr, prefix);
}

bool uci_validate_text(const char* str) {
    for (; *str; ++str) {
        const auto c = static_cast<unsigned char>(*str);
        if (c < ' ' && c != '\t' && c != '\n' && c != '\r') return false;
    }
    return true;
}
