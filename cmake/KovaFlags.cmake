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
  add_compile_definitions(KOVA_SANITIZED)
  add_link_options(-fsanitize=${KOVA_SANITIZE})
  # The library of the sanitizers, which hosts built without them load first; clang uses an archive
  # unless it is told not to.
  set(kova_sanitizers libasan.so)
  if(CMAKE_C_COMPILER_ID MATCHES Clang)
    set(kova_sanitizers libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so)
  endif()
  execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=${kova_sanitizers}
                  OUTPUT_VARIABLE kova_sanitizers OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(CMAKE_C_COMPILER_ID MATCHES Clang AND NOT KOVA_FUZZ)
    get_filename_component(directory ${kova_sanitizers} DIRECTORY)
    add_link_options(-shared-libasan -Wl,-rpath,${directory})
  endif()
endif()

# Optimisation for sources that are built more often than they run.
if(KOVA_SANITIZE OR KOVA_QUICK)
  set(kova_quick_build -O0)
else()
  set(kova_quick_build $<$<CONFIG:Release>:-O1>)
endif()
