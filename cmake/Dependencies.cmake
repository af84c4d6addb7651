# All third-party libraries, as imported targets. scripts/setup.sh installs their packages.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

pkg_check_modules(zstd REQUIRED IMPORTED_TARGET libzstd)
pkg_check_modules(xxhash REQUIRED IMPORTED_TARGET libxxhash)
pkg_check_modules(dw REQUIRED IMPORTED_TARGET libdw libelf)
pkg_check_modules(traceevent REQUIRED IMPORTED_TARGET libtraceevent)

find_package(RapidJSON REQUIRED)
find_package(CLI11 REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark REQUIRED)

find_path(SPARSEHASH_INCLUDE_DIR sparsehash/dense_hash_map REQUIRED)
