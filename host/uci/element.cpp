// element.cpp - packages, sections, options and items: one block each, with their texts behind.
#include <cstring>

#include "internal.h"

namespace uci {
namespace {

bool is_name_character(unsigned char c) {
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

template <typename Accept>
bool is_text_of(const char* text, Accept accept) {
    if (!*text) return false;
    for (; *text; ++text) {
        if (!accept(static_cast<unsigned char>(*text))) return false;
    }
    return true;
}

// A zeroed structure with two texts behind it; *first and *second are where they lie.
template <typename T>
T* new_block(const char* first, const char* second) {
    const size_t first_size = strlen(first) + 1;
    const size_t second_size = second ? strlen(second) + 1 : 0;
    auto* block = static_cast<T*>(malloc(sizeof(T) + first_size + second_size));
    if (!block) return nullptr;
    memset(static_cast<void*>(block), 0, sizeof(T));
    char* texts = uci_dataptr(block);
    memcpy(texts, first, first_size);
    if (second) memcpy(texts + first_size, second, second_size);
    return block;
}

template <typename T>
char* first_text(T* block) {
    return uci_dataptr(block);
}

template <typename T>
char* second_text(T* block) {
    return first_text(block) + strlen(first_text(block)) + 1;
}

void init_element(uci_element* element, uci_type type, char* name) {
    list_init(&element->list);
    element->type = type;
    element->name = name;
}

// Replaces a text that lies in its element's block at first, and outside once it has changed.
int replace_text(char** text, const char* in_block, const char* value) {
    char* copy = strdup(value);
    if (!copy) return UCI_ERR_MEM;
    if (*text != in_block) free(*text);
    *text = copy;
    return UCI_OK;
}

void drop_value(uci_option* option) {
    if (option->type == UCI_TYPE_LIST) {
        free_elements(&option->v.list);
    } else if (option->v.string != second_text(option)) {
        free(option->v.string);
    }
}

uci_section* link_section(uci_package* package, const char* type, const char* name,
                          bool anonymous) {
    auto* section = new_block<uci_section>(name, type);
    if (!section) return nullptr;
    init_element(&section->e, UCI_TYPE_SECTION, first_text(section));
    section->type = second_text(section);
    section->anonymous = anonymous;
    list_init(&section->options);
    section->package = package;
    ++package->n_section;
    list_append(&package->sections, &section->e.list);
    return section;
}

uci_option* link_option(uci_section* section, const char* name, const char* value) {
    auto* option = new_block<uci_option>(name, value);
    if (!option) return nullptr;
    init_element(&option->e, UCI_TYPE_OPTION, first_text(option));
    option->section = section;
    list_append(&section->options, &option->e.list);
    return option;
}

}  // namespace

void list_insert_after(uci_list* position, uci_list* entry) {
    entry->prev = position;
    entry->next = position->next;
    position->next->prev = entry;
    position->next = entry;
}

void list_remove(uci_list* entry) {
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
    list_init(entry);
}

uci_element* find_element(uci_list* list, const char* name) {
    uci_element* element = nullptr;
    uci_foreach_element(list, element) {
        if (strcmp(element->name, name) == 0) return element;
    }
    return nullptr;
}

bool is_valid_name(const char* text) {
    return is_text_of(text, is_name_character);
}

bool is_graphic(const char* text) {
    return is_text_of(text, is_graphic_character);
}

bool is_valid_package(const char* text) {
    return is_text_of(text, [](unsigned char c) { return c == '-' || is_name_character(c); });
}

uint32_t hash_text(uint32_t hash, const char* text) {
    for (; *text; ++text)
        hash = hash * 33 + static_cast<uint32_t>(*text);
    return hash & 0x7fffffff;
}

uci_element* new_element(uci_type type, const char* name) {
    auto* element = new_block<uci_element>(name, nullptr);
    if (element) init_element(element, type, first_text(element));
    return element;
}

uci_package* new_package(uci_context* ctx, const char* name) {
    auto* package = new_block<uci_package>(name, nullptr);
    if (!package) return nullptr;
    init_element(&package->e, UCI_TYPE_PACKAGE, first_text(package));
    package->ctx = ctx;
    package->backend = ctx->backend;
    list_init(&package->sections);
    list_init(&package->delta);
    list_init(&package->saved_delta);
    return package;
}

uci_section* new_section(uci_package* package, const char* type, const char* name) {
    return link_section(package, type, name, false);
}

// The name is a count and a hash of the type: stable for one content of the file, and the same in
// every program that reads it.
uci_section* new_anonymous_section(uci_package* package, const char* type) {
    char name[32];
    snprintf(name, sizeof(name), "cfg%02x%04x", static_cast<unsigned>(package->n_section) + 1,
             static_cast<unsigned>(hash_text(kHashSeed, type) & 0xffff));
    return link_section(package, type, name, true);
}

uci_option* new_string_option(uci_section* section, const char* name, const char* value) {
    uci_option* option = link_option(section, name, value);
    if (!option) return nullptr;
    option->type = UCI_TYPE_STRING;
    option->v.string = second_text(option);
    return option;
}

uci_option* new_list_option(uci_section* section, const char* name, const char* first_item) {
    uci_option* option = link_option(section, name, "");
    if (!option) return nullptr;
    option->type = UCI_TYPE_LIST;
    list_init(&option->v.list);
    if (append_item(option, first_item) == UCI_OK) return option;
    free_option(option);
    return nullptr;
}

int set_section_type(uci_section* section, const char* type) {
    return replace_text(&section->type, second_text(section), type);
}

int set_section_name(uci_section* section, const char* name) {
    return replace_text(&section->e.name, first_text(section), name);
}

int set_option_name(uci_option* option, const char* name) {
    return replace_text(&option->e.name, first_text(option), name);
}

int set_option_string(uci_option* option, const char* value) {
    char* copy = strdup(value);
    if (!copy) return UCI_ERR_MEM;
    drop_value(option);
    option->type = UCI_TYPE_STRING;
    option->v.string = copy;
    return UCI_OK;
}

int append_item(uci_option* option, const char* value) {
    uci_element* item = new_element(UCI_TYPE_ITEM, value);
    if (!item) return UCI_ERR_MEM;
    if (option->type == UCI_TYPE_STRING) {
        uci_element* first = new_element(UCI_TYPE_ITEM, option->v.string);
        if (!first) {
            free_element(item);
            return UCI_ERR_MEM;
        }
        drop_value(option);
        option->type = UCI_TYPE_LIST;
        list_init(&option->v.list);
        list_append(&option->v.list, &first->list);
    }
    list_append(&option->v.list, &item->list);
    return UCI_OK;
}

void free_element(uci_element* element) {
    list_remove(&element->list);
    free(element);
}

void free_elements(uci_list* list) {
    uci_element *element = nullptr, *next = nullptr;
    uci_foreach_element_safe(list, next, element) free_element(element);
}

void free_option(uci_option* option) {
    drop_value(option);
    if (option->e.name != first_text(option)) free(option->e.name);
    free_element(&option->e);
}

void free_section(uci_section* section) {
    uci_element *element = nullptr, *next = nullptr;
    uci_foreach_element_safe(&section->options, next, element) free_option(uci_to_option(element));
    if (section->type != second_text(section)) free(section->type);
    if (section->e.name != first_text(section)) free(section->e.name);
    free_element(&section->e);
}

void free_package(uci_package* package) {
    uci_element *element = nullptr, *next = nullptr;
    uci_foreach_element_safe(&package->sections, next, element) {
        free_section(uci_to_section(element));
    }
    free_elements(&package->delta);
    free_elements(&package->saved_delta);
    free(package->path);
    free_element(&package->e);
}

}  // namespace uci
