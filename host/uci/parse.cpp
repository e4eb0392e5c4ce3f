// parse.cpp - the statements of a configuration file.
#include <cstring>

#include "internal.h"
#include "lexer.h"

namespace uci {
namespace {

// The first element of each name in a list that only grows meanwhile. Short lists are walked; long
// ones are hashed, so that a file of many names is read in linear time.
class NameIndex {
  public:
    ~NameIndex() { free(slots_); }
    NameIndex() = default;
    NameIndex(const NameIndex&) = delete;
    NameIndex& operator=(const NameIndex&) = delete;

    int attach(uci_list* list) {
        list_ = list;
        count_ = 0;
        used_ = false;
        uci_element* element = nullptr;
        uci_foreach_element(list, element) {
            if (const int error = added(element)) return error;
        }
        return UCI_OK;
    }

    uci_element* find(const char* name) const {
        return used_ ? slot_of(name)->element : find_element(list_, name);
    }

    // Tells of an element that has been appended.
    int added(uci_element* element) {
        if (++count_ <= kWalked) return UCI_OK;
        if (!used_ || count_ * 2 > size_) return rebuild();
        take_slot(element);
        return UCI_OK;
    }

  private:
    static constexpr size_t kWalked = 24;
    static constexpr size_t kFirstSize = 128;  // a power of two, as all sizes

    struct Slot {
        uci_element* element;
    };

    Slot* slot_of(const char* name) const {
        size_t at = hash_text(kHashSeed, name) & (size_ - 1);
        while (slots_[at].element && strcmp(slots_[at].element->name, name) != 0) {
            at = (at + 1) & (size_ - 1);
        }
        return &slots_[at];
    }

    void take_slot(uci_element* element) {
        Slot* slot = slot_of(element->name);
        if (!slot->element) slot->element = element;
    }

    int rebuild() {
        if (const int error = resize()) return error;
        memset(slots_, 0, size_ * sizeof(Slot));
        used_ = true;
        uci_element* element = nullptr;
        uci_foreach_element(list_, element) take_slot(element);
        return UCI_OK;
    }

    int resize() {
        size_t size = size_ ? size_ : kFirstSize;
        while (size < count_ * 4)
            size *= 2;
        if (size == size_) return UCI_OK;
        auto* grown = static_cast<Slot*>(realloc(slots_, size * sizeof(Slot)));
        if (!grown) return UCI_ERR_MEM;
        slots_ = grown;
        size_ = size;
        return UCI_OK;
    }

    uci_list* list_ = nullptr;
    size_t count_ = 0;
    bool used_ = false;
    Slot* slots_ = nullptr;
    size_t size_ = 0;
};

class Parser {
  public:
    Parser(uci_context* ctx, FILE* stream, const char* name, bool single)
        : ctx_(ctx), lexer_(stream), name_(name), single_(single) {}

    int run(uci_package** package);

  private:
    int parse_line();
    int statement();
    int package_statement();
    int config_statement();
    int option_statement(bool list);
    int enter(Lexer::Word command, const char* nameless);

    int select_package(const char* name);
    int create_package(const char* name);
    int ensure_package();
    int open_named_section(const char* type, const char* name);
    int store(const char* name, const char* value, bool list);

    int required_argument(bool (*is_valid)(const char*), const char* complaint, size_t* offset);
    int no_more_arguments();
    int tolerate(int error);
    bool strict() const { return (ctx_->flags & UCI_FLAG_STRICT) != 0; }

    uci_context* ctx_;
    Lexer lexer_;
    const char* name_;
    bool single_;
    Record record_ = Record::kNo;
    uci_package* package_ = nullptr;
    uci_package* created_ = nullptr;  // to be dropped when the parse fails
    uci_section* section_ = nullptr;
    NameIndex sections_;
    NameIndex options_;
};

constexpr const char* kBadName = "invalid character in name field";
constexpr const char* kBadType = "invalid character in type field";

int Parser::required_argument(bool (*is_valid)(const char*), const char* complaint,
                              size_t* offset) {
    if (const int error = lexer_.argument(offset)) return error;
    const char* text = lexer_.text(*offset);
    if (!*text) return lexer_.fail("insufficient arguments");
    return is_valid(text) ? UCI_OK : lexer_.fail(complaint);
}

int Parser::no_more_arguments() {
    size_t offset = 0;
    if (const int error = lexer_.argument(&offset)) return error;
    return *lexer_.text(offset) && strict() ? lexer_.fail("too many arguments") : UCI_OK;
}

int Parser::create_package(const char* name) {
    if (find_element(&ctx_->root, name)) return UCI_ERR_DUPLICATE;
    package_ = new_package(ctx_, name);
    if (!package_) return UCI_ERR_MEM;
    list_append(&ctx_->root, &package_->e.list);
    created_ = package_;
    return sections_.attach(&package_->sections);
}

// Statements before the first `package` line belong to the package of the caller's name.
int Parser::ensure_package() {
    if (package_) return UCI_OK;
    if (name_) return create_package(name_);
    return lexer_.fail("attempting to import a file without a package name");
}

int Parser::package_statement() {
    size_t name = 0;
    if (const int error = required_argument(is_valid_package, kBadName, &name)) return error;
    if (const int error = no_more_arguments()) return error;
    if (single_) return UCI_OK;
    // The package before this line is complete, and stays whatever follows.
    created_ = nullptr;
    section_ = nullptr;
    return create_package(lexer_.text(name));
}

int Parser::open_named_section(const char* type, const char* name) {
    uci_element* element = sections_.find(name);
    uci_section* existing = element ? uci_to_section(element) : nullptr;
    if (existing && strict() && strcmp(existing->type, type) != 0) {
        return lexer_.fail("section of different type overwrites prior section with same name");
    }
    if (const int error = set_section(package_, existing, name, type, record_, &section_))
        return error;
    return existing ? UCI_OK : sections_.added(&section_->e);
}

int Parser::config_statement() {
    size_t type = 0, name = 0;
    if (const int error = required_argument(is_graphic, kBadType, &type)) return error;
    if (const int error = lexer_.argument(&name)) return error;
    if (*lexer_.text(name) && !is_valid_name(lexer_.text(name))) return lexer_.fail(kBadName);
    if (const int error = no_more_arguments()) return error;

    if (*lexer_.text(name)) {
        if (const int error = open_named_section(lexer_.text(type), lexer_.text(name)))
            return error;
    } else {
        if (const int error = add_section(package_, lexer_.text(type), record_, &section_))
            return error;
        if (const int error = sections_.added(&section_->e)) return error;
    }
    return options_.attach(&section_->options);
}

int Parser::store(const char* name, const char* value, bool list) {
    uci_element* element = options_.find(name);
    uci_option* option = element ? uci_to_option(element) : nullptr;
    if (const int error = list ? add_to_list(section_, option, name, value, record_, &option)
                               : set_option(section_, option, name, value, record_, &option)) {
        return error;
    }
    return element ? UCI_OK : options_.added(&option->e);
}

int Parser::option_statement(bool list) {
    size_t name = 0, value = 0;
    if (const int error = required_argument(is_valid_name, kBadName, &name)) return error;
    if (const int error = lexer_.argument(&value)) return error;
    if (const int error = no_more_arguments()) return error;
    // An option without a value is no option, while a list may hold empty items.
    if (!list && !*lexer_.text(value)) return UCI_OK;
    return store(lexer_.text(name), lexer_.text(value), list);
}

bool is_command(const char* word, size_t length, const char* name) {
    return (length == 1 && *word == *name) ||
           (length == strlen(name) && strncmp(word, name, length) == 0);
}

// What follows a command word. A word that ends the file has its own complaint, at the word.
int Parser::enter(Lexer::Word command, const char* nameless) {
    if (lexer_.ends_with(command)) return lexer_.fail(nameless);
    lexer_.skip_command(command);
    return UCI_OK;
}

int Parser::statement() {
    const Lexer::Word command = lexer_.peek_command();
    const char* word = lexer_.text(command.offset);
    const auto is = [&](const char* name) { return is_command(word, command.length, name); };
    if (command.length == 0 || *word == '#') {
        lexer_.skip_line();
        return UCI_OK;
    }
    if (is("package")) {
        const int error = enter(command, "package without name");
        return error ? error : package_statement();
    }
    if (is("config")) {
        if (const int package_error = ensure_package()) return package_error;
        const int error = enter(command, "config without name");
        return error ? error : config_statement();
    }
    const bool list = is("list");
    if (!list && !is("option")) return lexer_.fail("invalid command");
    if (!section_) return lexer_.fail("option/list command found before the first section");
    const int error = enter(command, "option without name");
    return error ? error : option_statement(list);
}

int Parser::parse_line() {
    lexer_.skip_blanks();
    while (lexer_.line_has_more()) {
        if (const int error = statement()) return error;
    }
    return UCI_OK;
}

// A syntax error ends a strict parse and only its line otherwise.
int Parser::tolerate(int error) {
    if (error != UCI_ERR_PARSE) return error;
    set_parse_error(ctx_, lexer_);
    if (strict()) return error;
    if ((ctx_->flags & UCI_FLAG_PERROR) != 0) {
        ctx_->err = error;
        uci_perror(ctx_, nullptr);
    }
    ctx_->pctx = nullptr;
    return UCI_OK;
}

int Parser::run(uci_package** package) {
    if (*package && single_) {
        package_ = *package;
        record_ = Record::kYes;
        if (const int error = sections_.attach(&package_->sections)) return error;
    }
    int error = UCI_OK;
    do {
        error = lexer_.next_line();
        if (!error) error = tolerate(parse_line());
    } while (!error && !lexer_.at_end());
    if (!error && !package_ && name_) error = create_package(name_);
    if (error && created_) free_package(created_);
    if (!error) *package = package_;
    return error;
}

}  // namespace

void set_parse_error(uci_context* ctx, const Lexer& lexer) {
    uci_parse_context& place = context_of(ctx).error;
    place = {lexer.reason(), lexer.line(), lexer.byte()};
    ctx->pctx = &place;
}

int import(uci_context* ctx, FILE* stream, const char* name, uci_package** package, bool single) {
    Parser parser(ctx, stream, name, single);
    return parser.run(package);
}

}  // namespace uci

int uci_import(uci_context* ctx, FILE* stream, const char* name, uci_package** package,
               bool single) {
    if (!ctx || !stream) return uci::reject(ctx);
    uci::begin(ctx);
    uci_package* imported = package ? *package : nullptr;
    const int error = uci::import(ctx, stream, name, &imported, single);
    if (!error && package) *package = imported;
    return uci::finish(ctx, error);
}

int uci_parse_argument(uci_context* ctx, FILE* stream, char** str, char** result) {
    if (!ctx || !stream || !str || !result) return uci::reject(ctx);
    uci::begin(ctx);
    uci::Lexer* lexer = uci::arguments_of(ctx, stream);
    if (!lexer) return uci::finish(ctx, UCI_ERR_MEM);
    if (!*str) {
        if (const int error = lexer->next_line()) return uci::finish(ctx, error);
    }
    size_t offset = 0;
    const int error = lexer->argument(&offset);
    if (error == UCI_ERR_PARSE) uci::set_parse_error(ctx, *lexer);
    if (!error) {
        *result = lexer->text(offset);
        *str = lexer->rest();
    }
    return uci::finish(ctx, error);
}
