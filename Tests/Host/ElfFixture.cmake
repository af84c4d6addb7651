# Builds ElfFixture.cpp and the files that strip and objcopy make of it, in ELF_FIXTURE_FOLDER:
#   libfull.so                     full symbol table, build id ELF_FIXTURE_ID
#   libstripped.so                 only exported functions
#   libpacked.so                   stripped, with the full table packed into it
#   roots/.build-id/*.debug        debug file of libfull.so
#   linked/libplain.so, .debug/    stripped, without build id, with a debug link
set(ELF_FIXTURE_FOLDER ${CMAKE_CURRENT_BINARY_DIR}/ElfFixture)
set(ELF_FIXTURE_ID 5a0c3d1e7f2b4869a1b2c3d4e5f60718293a4b5c)
string(SUBSTRING ${ELF_FIXTURE_ID} 0 2 ID_START)
string(SUBSTRING ${ELF_FIXTURE_ID} 2 -1 ID_REST)
set(DEBUG_FILE roots/.build-id/${ID_START}/${ID_REST}.debug)

find_program(XZ_PROGRAM xz REQUIRED)

# The text segment starts elsewhere in memory than in the file, so that nobody can take one for the other. Sanitizers and warnings of
# the project are none of the fixture's.
function(add_elf_fixture NAME BUILD_ID)
    add_library(${NAME} SHARED ElfFixture.cpp)
    target_compile_options(${NAME} PRIVATE -O1 -g -fcf-protection=none)
    target_link_options(${NAME} PRIVATE -Wl,-Ttext-segment=0x200000 -Wl,--build-id=${BUILD_ID})
    set_target_properties(${NAME} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${ELF_FIXTURE_FOLDER}/built)
endfunction()
add_elf_fixture(ElfFixtureFull 0x${ELF_FIXTURE_ID})
add_elf_fixture(ElfFixturePlain none)

add_custom_command(
    OUTPUT ${ELF_FIXTURE_FOLDER}/complete
    DEPENDS ElfFixtureFull ElfFixturePlain
    WORKING_DIRECTORY ${ELF_FIXTURE_FOLDER}
    COMMAND ${CMAKE_COMMAND} -E make_directory roots/.build-id/${ID_START} linked/.debug
    COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:ElfFixtureFull> libfull.so
    COMMAND ${CMAKE_STRIP} --strip-all -o libstripped.so libfull.so
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug libfull.so ${DEBUG_FILE}
    COMMAND ${CMAKE_OBJCOPY} --strip-debug libfull.so packed
    COMMAND ${XZ_PROGRAM} --force packed
    COMMAND ${CMAKE_OBJCOPY} --add-section .gnu_debugdata=packed.xz libstripped.so libpacked.so
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug $<TARGET_FILE:ElfFixturePlain> linked/.debug/libplain.debug
    COMMAND ${CMAKE_STRIP} --strip-all -o linked/libplain.so $<TARGET_FILE:ElfFixturePlain>
    COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=linked/.debug/libplain.debug linked/libplain.so
    COMMAND ${CMAKE_COMMAND} -E touch complete)
add_custom_target(ElfFixtureFiles DEPENDS ${ELF_FIXTURE_FOLDER}/complete)
