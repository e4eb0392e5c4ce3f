// lookup.cpp - from a path text to packages, sections and options.
#include <algorithm>
#include <cstring>

#include "internal.h"

namespace uci {
namespace {

using Flags = decltype(uci_ptr::flags);

void add_flag(uci_ptr* ptr, Flags flag) {
    ptr->flags = static_cast<Flags>(ptr->flags | flag);
}

int split(uci_ptr* ptr, char* text) {
    char* value = strchr(text, '=');
    if (value) *value++ = '\0';
    ptr->value = value;

    ptr->target = UCI_TYPE_PACKAGE;
    ptr->package = strsep(&text, ".");
    ptr->section = strsep(&text, ".");
    if (ptr->section) ptr->target = UCI_TYPE_SECTION;
    ptr->option = strsep(&text, ".");
    if (ptr->option) ptr->target = UCI_TYPE_OPTION;
    if (text) return UCI_ERR_PARSE;
    if (value && !uci_validate_text(value)) return UCI_ERR_PARSE;

    if (!is_graphic(ptr->package)) return UCI_ERR_PARSE;
    if (ptr->section && !is_valid_name(ptr->section)) add_flag(ptr, uci_ptr::UCI_LOOKUP_EXTENDED);
    if (ptr->option && !is_valid_name(ptr->option)) return UCI_ERR_PARSE;
    return UCI_OK;
}

// The index in "[index]", an empty one being 0.
bool parse_index(const char* bracket, int* index) {
    char* end = nullptr;
    *index = static_cast<int>(strtol(bracket + 1, &end, 10));
    return strcmp(end, "]") == 0;
}

// Called for every section that an index passes: types are short, and a call would cost more.
bool type_matches(const uci_section* section, const char* type, size_t length) {
    if (length == 0) return true;
    for (size_t i = 0; i < length; ++i) {
        if (section->type[i] != type[i]) return false;
    }
    return section->type[length] == '\0';
}

uci_section* nth_of_type(uci_package* package, const char* type, size_t length, int index) {
    const bool backwards = index < 0;
    int left = backwards ? -(index + 1) : index;
    for (uci_list* at = backwards ? package->sections.prev : package->sections.next;
         at != &package->sections; at = backwards ? at->prev : at->next) {
        uci_section* section = uci_to_section(list_to_element(at));
        if (type_matches(section, type, length) && left-- == 0) return section;
    }
    return nullptr;
}

// "@type[index]", or "@[index]" for a section of any type.
int find_extended(uci_ptr* ptr, uci_section** section) {
    const char* text = ptr->section;
    const char* bracket = strchr(text, '[');
    int index = 0;
    if (*text != '@' || !bracket || !parse_index(bracket, &index)) return UCI_ERR_INVAL;
    const char* type = text + 1;
    if (!std::all_of(type, bracket, is_graphic_character)) return UCI_ERR_INVAL;
    *section = nth_of_type(ptr->p, type, static_cast<size_t>(bracket - type), index);
    if (*section) ptr->section = (*section)->e.name;
    return UCI_OK;
}

int find_section(uci_ptr* ptr, bool extended, uci_section** section) {
    *section = ptr->s;
    if (ptr->s) return UCI_OK;
    if ((ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) == 0) {
        uci_element* element = find_element(&ptr->p->sections, ptr->section);
        *section = element ? uci_to_section(element) : nullptr;
        return UCI_OK;
    }
    if (!extended) return UCI_ERR_INVAL;
    const int error = find_extended(ptr, section);
    if (error) *ptr = {};
    return error;
}

int find_package(uci_context* ctx, uci_ptr* ptr) {
    if (!ptr->p) {
        if (!ptr->package) return UCI_ERR_INVAL;
        uci_element* element = find_element(&ctx->root, ptr->package);
        if (element) ptr->p = uci_to_package(element);
    }
    if (!ptr->p) {
        if (const int error = load(ctx, ptr->package, &ptr->p)) return error;
    }
    ptr->last = &ptr->p->e;
    return UCI_OK;
}

uci_option* find_option(const uci_ptr* ptr) {
    if (ptr->o) return ptr->o;
    uci_element* element = find_element(&ptr->s->options, ptr->option);
    return element ? uci_to_option(element) : nullptr;
}

}  // namespace

int parse_ptr(uci_ptr* ptr, char* text) {
    *ptr = {};
    const int error = split(ptr, text);
    if (error) *ptr = {};
    return error;
}

int lookup(uci_context* ctx, uci_ptr* ptr, char* text, bool extended) {
    if (text) {
        if (const int error = parse_ptr(ptr, text)) return error;
    }
    add_flag(ptr, uci_ptr::UCI_LOOKUP_DONE);
    if (const int error = find_package(ctx, ptr)) return error;

    if (!ptr->section && !ptr->s) {
        add_flag(ptr, uci_ptr::UCI_LOOKUP_COMPLETE);
        return UCI_OK;
    }
    if (const int error = find_section(ptr, extended, &ptr->s)) return error;
    if (!ptr->s) return UCI_OK;
    ptr->last = &ptr->s->e;

    if (ptr->option || ptr->o) {
        ptr->o = find_option(ptr);
        if (!ptr->o) return UCI_OK;
        ptr->last = &ptr->o->e;
    }
    add_flag(ptr, uci_ptr::UCI_LOOKUP_COMPLETE);
    return UCI_OK;
}

}  // namespace uci

int uci_parse_ptr(uci_context* ctx, uci_ptr* ptr, char* str) {
    if (!ctx || !ptr || !str) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::parse_ptr(ptr, str));
}

int uci_lookup_ptr(uci_context* ctx, uci_ptr* ptr, char* str, bool extended) {
    if (!ctx || !ptr) return uci::reject(ctx);
    uci::begin(ctx);
    return uci::finish(ctx, uci::lookup(ctx, ptr, str, extended));
}

int uci_lookup_next(uci_context* ctx, uci_element** e, uci_list* list, const char* name) {
    if (!ctx || !e || !list || !name) return uci::reject(ctx);
    *e = uci::find_element(list, name);
    return uci::finish(ctx, *e ? UCI_OK : UCI_ERR_NOTFOUND);
}

void uci_parse_section(uci_section* s, const uci_parse_option* opts, int n_opts, uci_option** tb) {
    for (int i = 0; i < n_opts; ++i)
        tb[i] = nullptr;
    uci_element* element = nullptr;
    uci_foreach_element(&s->options, element) {
        uci_option* option = uci_to_option(element);
        for (int i = 0; i < n_opts; ++i) {
            if (tb[i] || opts[i].type != option->type) continue;
            if (strcmp(opts[i].name, element->name) == 0) tb[i] = option;
        }
    }
}

uint32_t uci_hash_options(uci_option** tb, int n_opts) {
    uint32_t hash = 0xdeadc0de;
    for (int i = 0; i < n_opts; ++i) {
        if (!tb[i]) continue;
        hash = uci::hash_text(hash, tb[i]->e.name);
        if (tb[i]->type == UCI_TYPE_STRING) {
            hash = uci::hash_text(hash, tb[i]->v.string);
            continue;
        }
        uci_element* item = nullptr;
        uci_foreach_element(&tb[i]->v.list, item) hash = uci::hash_text(hash, item->name);
    }
    return hash;
}
