# Flags that every target of the project is built with, gathered in one interface target.
add_library(ProjectSettings INTERFACE)
target_include_directories(ProjectSettings INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/Source)

target_compile_options(ProjectSettings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wconversion -Wno-sign-conversion
    # Stored floating-point values must not depend on whether a compiler fuses a multiply and an add.
    -ffp-contract=off
    -fno-omit-frame-pointer)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Unique symbols would be shared between the host's and the plugin's copy of the core, whatever their visibility.
    target_compile_options(ProjectSettings INTERFACE -fno-gnu-unique)
else()
    target_compile_options(ProjectSettings INTERFACE -Wthread-safety)
endif()

if(BRENVALDORIS_WARNINGS_AS_ERRORS)
    target_compile_options(ProjectSettings INTERFACE -Werror)
endif()

if(BRENVALDORIS_SANITIZERS)
    target_compile_options(ProjectSettings INTERFACE -fsanitize=${BRENVALDORIS_SANITIZERS} -fno-sanitize-recover=all)
    target_link_options(ProjectSettings INTERFACE -fsanitize=${BRENVALDORIS_SANITIZERS})
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        target_compile_options(ProjectSettings INTERFACE -fsanitize-ignorelist=${CMAKE_SOURCE_DIR}/cmake/SanitizerIgnore.txt)
    endif()
endif()
if(BRENVALDORIS_FUZZERS)
    target_compile_options(ProjectSettings INTERFACE -fsanitize=fuzzer-no-link)
endif()
