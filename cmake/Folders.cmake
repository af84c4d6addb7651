# add_folder(NAME SOURCES... LINKS...): one static library for one folder of Source/ or Host/.
# A folder that has no sources yet, or only headers, is an interface target.
function(add_folder NAME)
    cmake_parse_arguments(FOLDER "" "" "SOURCES;LINKS" ${ARGN})
    if(FOLDER_SOURCES)
        add_library(${NAME} STATIC ${FOLDER_SOURCES})
        target_link_libraries(${NAME} PUBLIC ProjectSettings ${FOLDER_LINKS})
    else()
        add_library(${NAME} INTERFACE)
        target_link_libraries(${NAME} INTERFACE ProjectSettings ${FOLDER_LINKS})
    endif()
endfunction()

# add_folder_tests(NAME SOURCES... LINKS... [THREADS]): the tests of one folder as one program.
# THREADS marks tests that the thread sanitizer has something to say about: their label is "threads" instead of "unit", as the
# properties of discovered tests don't take lists.
function(add_folder_tests NAME)
    cmake_parse_arguments(TESTS "THREADS" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${NAME} ${TESTS_SOURCES})
    target_link_libraries(${NAME} PRIVATE ProjectSettings ${TESTS_LINKS} GTest::gmock GTest::gtest_main)
    set(LABEL unit)
    if(TESTS_THREADS)
        set(LABEL threads)
    endif()
    gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST PROPERTIES LABELS ${LABEL} TIMEOUT 600)
endfunction()

# add_fuzzer(NAME SOURCES... LINKS...): a libFuzzer program, built where BRENVALDORIS_FUZZERS is on.
function(add_fuzzer NAME)
    if(NOT BRENVALDORIS_FUZZERS)
        return()
    endif()
    cmake_parse_arguments(FUZZER "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${NAME} ${FUZZER_SOURCES})
    target_link_libraries(${NAME} PRIVATE ProjectSettings ${FUZZER_LINKS})
    target_link_options(${NAME} PRIVATE -fsanitize=fuzzer)
endfunction()

# add_benchmark(NAME SOURCES... LINKS...): a Google Benchmark program, and a test that runs each of its cases once, briefly.
function(add_benchmark NAME)
    cmake_parse_arguments(BENCHMARK "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${NAME} ${BENCHMARK_SOURCES})
    target_link_libraries(${NAME} PRIVATE ProjectSettings ${BENCHMARK_LINKS} benchmark::benchmark_main)
    add_test(NAME ${NAME} COMMAND ${NAME} --benchmark_min_time=0.001)
    set_tests_properties(${NAME} PROPERTIES LABELS benchmark TIMEOUT 600)
endfunction()
