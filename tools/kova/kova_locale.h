// Finding the data, listing its locale objects, and opening one of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kova.h"
#include "kova/kova_cli.h"

namespace kovacli {

// The data that the library is told to read.
struct data_place {
    std::string root;              // "" when KO_PATH names the directories
    std::vector<std::string> dirs; // of the objects; the first that has a file wins
};

enum class data_kind : uint8_t { locales, conversions, charmaps };

// Finds the data (--root, KO_PATH, VANTORDIR, beside the program, the root built in) and makes the
// library look there. Throws failure.
data_place find_data(const common_options &common, data_kind kind = data_kind::locales);

// Throws failure if a name from the command line or the environment is a path. what: "locale",
// "code set".
void refuse_path(const char *what, const std::string &name);

// The number of a code-set name; the first call caches the registry.
uint16_t code_set_number(const std::string &name);

// The registry for reading; null if there is none. Throws if there is one that cannot be read.
std::FILE *open_registry();
failure unreadable_registry();

// One compiled locale object.
struct object_file {
    std::string language;            // "de_DE"
    std::string modifier;            // "" for none
    uint16_t number = 0;             // of the code set
    std::string file_name;           // in the library's form: de_de\0333.lco
    std::string path;                // where it is
    std::string code_set;            // name in the file's header; "" if it is not a locale object
    std::vector<std::string> header; // the free header lines
    int fault = 0;                   // errno if the header could not be read
};

// Reads the header of an object file into code_set and header.
void read_header(object_file &object);

// All objects of a place, sorted by name, with their headers.
std::vector<object_file> list_objects(const data_place &place);

// The specification that opens an object: "de_DE.ISO-8859-1".
std::string specification(const object_file &object);

// The name of the source that an object was compiled from: "de_DE".
std::string source_name(const object_file &object);

// How an object's order differs from that of its source: "ci" (without case), "ai" (without case
// and accents), "thai" (by the Thai method); "" for all others.
std::string variant_name(const object_file &object);

// Is the code set of an object "unicode"?
bool is_unicode(const object_file &object);

// An open locale, released by its guard.
struct locale_handle {
    ko_lc_t loc = nullptr;
    object_file object; // number is KO_NO_CODESET for a default locale if unknown
    std::string name;   // its specification

    locale_handle() = default;
    locale_handle(const locale_handle &) = delete;
    ~locale_handle();
};

// Opens a locale by specification; by a bare ll_TT, which means "unicode" where that is compiled,
// else the only object; by the source's name where the object has a stand-in for it (ast_ES); or by
// "POSIX" (also "C", "default") for the default object. "UTF-8" as the
// code set means "unicode". Throws failure, which says which locales exist.
void open_locale(const data_place &place, const std::string &asked, locale_handle &handle);

// The specification for LC_ALL, LC_COLLATE or LANG: a UTF-8 locale means the code set "unicode"; if
// none is set, "POSIX".
std::string environment_locale();

// Tries to load an object; returns "" or what is wrong with it.
std::string object_fault(const object_file &object);

} // namespace kovacli
