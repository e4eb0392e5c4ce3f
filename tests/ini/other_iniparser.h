// other_iniparser.h - the interface of Debian's libiniparser 4.1, as cmake/TqOtherIniparser.cmake
// renames it.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>

extern "C" {
struct other_dictionary {
    int n;
    ssize_t size;
    char** val;
    char** key;
    unsigned* hash;
};

unsigned other_dictionary_hash(const char* key);
other_dictionary* other_dictionary_new(size_t size);
void other_dictionary_del(other_dictionary* d);
const char* other_dictionary_get(const other_dictionary* d, const char* key, const char* def);
int other_dictionary_set(other_dictionary* d, const char* key, const char* val);
void other_dictionary_unset(other_dictionary* d, const char* key);
void other_dictionary_dump(const other_dictionary* d, FILE* out);
int other_iniparser_getnsec(const other_dictionary* d);
const char* other_iniparser_getsecname(const other_dictionary* d, int n);
void other_iniparser_dump_ini(const other_dictionary* d, FILE* f);
const char* other_iniparser_getstring(const other_dictionary* d, const char* key, const char* def);
int other_iniparser_getint(const other_dictionary* d, const char* key, int notfound);
double other_iniparser_getdouble(const other_dictionary* d, const char* key, double notfound);
int other_iniparser_getboolean(const other_dictionary* d, const char* key, int notfound);
int other_iniparser_find_entry(const other_dictionary* d, const char* entry);
other_dictionary* other_iniparser_load(const char* ininame);
void other_iniparser_freedict(other_dictionary* d);
}
