// ini_faults.cpp - dictionaries and INI files.
#include <tq/dictionary.h>
#include <tq/iniparser.h>

#include <cstdio>

#include "faults/sweep.h"
#include "support/device.h"

namespace tq_test::sweep {
namespace {

constexpr char kFile[] = "/tmp/sweep.ini";

dictionary* table;
FILE* file;

void have_table() {
    table = dictionary_new(0);
    ASSERT_EQ(dictionary_set(table, "net", nullptr), 0);
    ASSERT_EQ(dictionary_set(table, "net:mode", "bridge"), 0);
    ASSERT_EQ(dictionary_set(table, "net:port", "1"), 0);
}

// The next key makes it grow.
void have_full_table() {
    have_table();
    for (int i = 3; i < 128; i++)
        ASSERT_EQ(dictionary_set(table, std::to_string(i).c_str(), nullptr), 0);
}

void free_table(intptr_t /*result*/) {
    dictionary_del(table);
}

Row on_table(std::string function, std::function<intptr_t()> call, std::string gives = "0") {
    return {.function = std::move(function),
            .prepare = have_table,
            .call = std::move(call),
            .undo = free_table,
            .gives = std::move(gives)};
}

// What the key has after the call.
std::function<std::string(intptr_t)> value_after(const char* key) {
    return
        [key](intptr_t result) { return with_text(result, dictionary_get(table, key, "absent")); };
}

Row setting(std::string function, const char* how, const char* key, std::function<intptr_t()> call,
            const char* before) {
    Row row = on_table(std::move(function), std::move(call), "0 new");
    row.how = how;
    row.outcome = value_after(key);
    row.fails = std::string("-1 ") + before;
    return row;
}

intptr_t address(const void* pointer) {
    return reinterpret_cast<intptr_t>(pointer);
}

std::string whether_made(intptr_t result) {
    return result ? "made" : "null";
}

void free_made(intptr_t result) {
    dictionary_del(reinterpret_cast<dictionary*>(result));
}

// Writes all of it to a file; what the file does not take is the caller's to find out.
Row dump(std::string function, void (*write)(const dictionary*, FILE*)) {
    return {.function = std::move(function),
            .prepare =
                [] {
                    have_table();
                    file = fopen(kFile, "we");
                },
            .call =
                [write] {
                    write(table, file);
                    return 0;
                },
            .undo =
                [](intptr_t result) {
                    fclose(file);
                    free_table(result);
                },
            .fails = "0"};
}

void add_dictionary(std::vector<Row>& rows) {
    rows.push_back(pure("dictionary_hash", [] { return dictionary_hash("key") == 0; }));
    rows.push_back({.function = "dictionary_new",
                    .call = [] { return address(dictionary_new(0)); },
                    .outcome = whether_made,
                    .undo = free_made,
                    .gives = "made",
                    .fails = "null"});
    rows.push_back(on_table("dictionary_del", [] {
        dictionary_del(table);
        return 0;
    }));
    rows.back().undo = nullptr;
    rows.push_back(on_table("dictionary_get", [] {
        return intptr_t{dictionary_get(table, "net:mode", nullptr) == nullptr};
    }));
    rows.push_back(setting(
        "dictionary_set", "a new key", "new", [] { return dictionary_set(table, "new", "new"); },
        "absent"));
    rows.push_back(setting(
        "dictionary_set", "a key that is there", "net:mode",
        [] { return dictionary_set(table, "net:mode", "new"); }, "bridge"));
    rows.push_back(setting(
        "dictionary_set", "a full table", "new", [] { return dictionary_set(table, "new", "new"); },
        "absent"));
    rows.back().prepare = have_full_table;
    rows.push_back(on_table("dictionary_unset", [] {
        dictionary_unset(table, "net:mode");
        return 0;
    }));
    rows.push_back(dump("dictionary_dump", dictionary_dump));
}

void add_iniparser(std::vector<Row>& rows) {
    rows.push_back(on_table(
        "iniparser_getnsec", [] { return iniparser_getnsec(table); }, "1"));
    rows.push_back(on_table("iniparser_getsecname",
                            [] { return intptr_t{iniparser_getsecname(table, 0) == nullptr}; }));
    rows.push_back(dump("iniparser_dump", iniparser_dump));
    rows.push_back(dump("iniparser_dump_ini", iniparser_dump_ini));
    rows.push_back(on_table("iniparser_getstring", [] {
        return intptr_t{iniparser_getstring(table, "net:mode", nullptr) == nullptr};
    }));
    rows.push_back(on_table(
        "iniparser_getint", [] { return iniparser_getint(table, "net:port", 0); }, "1"));
    rows.push_back(on_table(
        "iniparser_getdouble",
        [] { return static_cast<intptr_t>(iniparser_getdouble(table, "net:port", 0)); }, "1"));
    rows.push_back(on_table(
        "iniparser_getboolean", [] { return iniparser_getboolean(table, "net:port", 0); }, "1"));
    rows.push_back(on_table(
        "iniparser_find_entry", [] { return iniparser_find_entry(table, "net:mode"); }, "1"));
    rows.push_back(setting(
        "iniparser_set", "", "net:mode", [] { return iniparser_set(table, "net:mode", "new"); },
        "bridge"));
    rows.push_back(on_table("iniparser_unset", [] {
        iniparser_unset(table, "net:mode");
        return 0;
    }));
    for (const bool marked : {false, true}) {
        rows.push_back({.function = "iniparser_load",
                        .how = marked ? "with a byte-order mark" : "",
                        .prepare =
                            [marked] {
                                const std::string mark = marked ? "\xEF\xBB\xBF" : "";
                                write_file(kFile, mark + "[net]\nmode = bridge\n");
                            },
                        .call = [] { return address(iniparser_load(kFile)); },
                        .outcome = whether_made,
                        .undo = free_made,
                        .gives = "made",
                        .fails = "null"});
    }
    rows.push_back(on_table("iniparser_freedict", [] {
        iniparser_freedict(table);
        return 0;
    }));
    rows.back().undo = nullptr;
    rows.push_back(dump("iniparser_dump_append", iniparser_dump_append));
}

}  // namespace

std::vector<Row> ini_rows() {
    std::vector<Row> rows;
    add_dictionary(rows);
    add_iniparser(rows);
    return rows;
}

}  // namespace tq_test::sweep
