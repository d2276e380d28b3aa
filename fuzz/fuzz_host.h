// The host of the fuzzers: memory that is counted, the files of the tests, whose checks end the
// program, and the locales of a compiled data root.
#ifndef FUZZ_HOST_H
#define FUZZ_HOST_H

#include "kova_host.h"
#include "support/fixture.h"

#include <string.h>

// The sanitizer knows the blocks, so their number is enough.
static struct { long live = 0; } memory;
static const installed_hooks memory_hooks_of_fuzzer = {
    {KO_EXT_MALLOC, as_hook(+[](size_t size) {
         void *const block = malloc(size);
         memory.live += block != nullptr;
         return block;
     })},
    {KO_EXT_FREE,   as_hook(+[](void *block) {
         memory.live -= block != nullptr;
         free(block);
     })  },
};

static void check(bool holds, const char *law) {
    if (holds) return;
    fprintf(stderr, "broken: %s\n", law);
    abort();
}

// A compiled data root: KOVA_FUZZ_ROOT, or "root" beside the program; "" if there is none.
static std::string data_root;

extern "C" int LLVMFuzzerInitialize(int *, char ***argv) {
    GTEST_FLAG_SET(break_on_failure, true);
    const auto program = std::filesystem::path((*argv)[0]).parent_path();
    const char *const named = getenv("KOVA_FUZZ_ROOT");
    const std::string root = named ? named : (program / "root").string();
    if (std::filesystem::is_directory(root + "/kova/lc11")) data_root = root;
    return 0;
}

// The locales of the root, each opened when it is first used, with what its first key makes.
struct root_locales {
    std::vector<std::string> specs;
    std::vector<ko_lc_t> opened;
    root_locales() {
        const auto take = [](void *user, const ko_locale_entry *entry) {
            static_cast<std::vector<std::string> *>(user)->push_back(entry->spec);
            return 0;
        };
        if (!data_root.empty()) ko_list_locales(data_root.c_str(), take, &specs);
        opened.resize(specs.size());
    }
    ~root_locales() {
        for (const ko_lc_t loc : opened)
            ko_close_locale(loc);
    }
    root_locales(const root_locales &) = delete;
    size_t size() const { return specs.size(); }
    ko_lc_t operator[](size_t i) {
        if (opened[i]) return opened[i];
        check(!ko_open_locale(&opened[i], data_root.c_str(), specs[i].c_str(), KO_OPEN_VERIFY),
              "what is compiled can be opened");
        if (!ko_locale_utf8(opened[i])) ko_utf8sxfrm(opened[i], nullptr, 0, "a", 1);
        return opened[i];
    }
};

#endif
