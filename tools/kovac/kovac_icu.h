// ICU's functions, found when they are needed: ICU is large. The declarations are those of the
// version that kovac was built with.
#pragma once

#include <dlfcn.h>

// The library's functions; their names end in its version.
#define KOVAC_TEXT(name) #name
#define KOVAC_NAME(name) KOVAC_TEXT(name)
#define KOVAC_ICU_FUNCTION(member, name)                                                           \
    decltype(&name) member = reinterpret_cast<decltype(&name)>(find(KOVAC_NAME(name)))

namespace kovac {

// One of its libraries; what derives from it has a member for each function.
struct icu_part {
    void *library;
    bool complete;
    explicit icu_part(const char *file) : library(dlopen(file, RTLD_NOW)), complete(library) {}
    void *find(const char *name) {
        void *found = library ? dlsym(library, name) : nullptr;
        complete &= found != nullptr;
        return found;
    }
};

} // namespace kovac
