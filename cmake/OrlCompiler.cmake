# Language, optimisation and warning settings, the same for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# -g1 keeps line numbers in stack traces at a small part of the cost of full debug information.
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_FLAGS_RELEASE "-O3 -g1 -DNDEBUG")
    set(CMAKE_${language}_FLAGS_DEBUG "-O0 -g")
    set(CMAKE_${language}_FLAGS_RELWITHDEBINFO "-O1 -g1 -fno-omit-frame-pointer")
endforeach()

# No fused multiply-add: the same inputs give the same bits on every platform and compiler.
# Paths in messages and debug information start at the repository, wherever it lies.
add_compile_options(-ffp-contract=off -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(ORL_SANITIZE)
    add_compile_options(-fsanitize=${ORL_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ORL_SANITIZE})
endif()
if(ORL_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# clang takes sign conversions for part of -Wconversion, g++ does not; the published integer types would
# need a cast at every turn, so neither warns about them.
add_library(orl_warnings INTERFACE)
target_compile_options(orl_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Werror)
