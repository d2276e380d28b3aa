# Warnings, sanitizers and hardening, as interface targets that the other targets link.
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
  if(CMAKE_C_COMPILER_ID MATCHES Clang AND KOVA_SANITIZE MATCHES address AND NOT KOVA_FUZZ)
    get_filename_component(directory ${kova_sanitizers} DIRECTORY)
    add_link_options(-shared-libasan -Wl,-rpath,${directory})
  endif()
endif()

# Each process adds its counts to the profiles of its program, wherever it runs.
if(KOVA_COVERAGE)
  add_compile_options(-fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%2m.profraw
                      -fcoverage-mapping)
  add_link_options(-fprofile-instr-generate)
endif()
# Builds that are not as what is released.
set(kova_instrumented OFF)
if(KOVA_SANITIZE OR KOVA_COVERAGE)
  set(kova_instrumented ON)
endif()

# Optimisation for sources that are built more often than they run.
if(kova_instrumented OR KOVA_QUICK)
  set(kova_quick_build -O0)
else()
  set(kova_quick_build $<$<CONFIG:Release>:-O1>)
endif()

# What makes a fault harder to exploit, for what is released: the library, the commands and the
# extensions of hosts. tests/hardening_test looks for it in the built files. Checked calls of the C
# library need optimisation, which CMAKE_CXX_FLAGS_RELEASE may take away.
add_library(kova_hardening INTERFACE)
if(NOT KOVA_SANITIZE AND CMAKE_C_COMPILER_ID MATCHES "GNU|Clang" AND NOT MSVC)
  include(CheckCXXCompilerFlag)
  include(CheckLinkerFlag)
  set(kova_released $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
  set(flags -fstack-protector-strong -fcf-protection)
  set(linker_flags -z,relro -z,now -z,noexecstack)
  if(WIN32)
    set(flags "")  # the protector's runtime would be one more DLL
    set(linker_flags --dynamicbase --nxcompat --high-entropy-va)
  elseif(NOT KOVA_QUICK AND NOT "${CMAKE_CXX_FLAGS_RELEASE}" MATCHES "-O0")
    target_compile_options(kova_hardening INTERFACE
        "$<${kova_released}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  endif()
  foreach(flag IN LISTS flags)
    string(MAKE_C_IDENTIFIER "KOVA_COMPILER${flag}" has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
      target_compile_options(kova_hardening INTERFACE $<${kova_released}:${flag}>)
    endif()
  endforeach()
  foreach(flag IN LISTS linker_flags)
    string(MAKE_C_IDENTIFIER "KOVA_LINKER${flag}" has)
    check_linker_flag(C -Wl,${flag} ${has})
    if(${has})
      target_link_options(kova_hardening INTERFACE -Wl,${flag})
    endif()
  endforeach()
endif()
