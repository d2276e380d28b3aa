# Warnings and sanitizers, as interface targets that every other target links.
set(kova_werror)
if(KOVA_DEVELOPER)
  set(kova_werror -Werror)
endif()
set(kova_warnings_common -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
    -Wcast-qual -Wimplicit-fallthrough -Wno-missing-field-initializers ${kova_werror})
add_library(kova_warnings INTERFACE)
target_compile_options(kova_warnings INTERFACE ${kova_warnings_common}
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wmissing-declarations>)

# For programs that use std::string: when it inlines much, g++ 12 mistakes "text" + string for an
# overlapping or endless copy. The library does not use std::string and keeps these warnings.
add_library(kova_std_string INTERFACE)
target_compile_options(kova_std_string INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict;-Wno-array-bounds;-Wno-stringop-overflow>)

if(KOVA_SANITIZE)
  add_compile_options(-fsanitize=${KOVA_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KOVA_SANITIZE})
endif()

# Optimisation for sources that are built more often than they run.
if(KOVA_SANITIZE OR KOVA_QUICK)
  set(kova_quick_build -O0)
else()
  set(kova_quick_build $<$<CONFIG:Release>:-O1>)
endif()
