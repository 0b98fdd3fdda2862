# Registers tests: one executable, one CTest entry, one process for each suite.
#
# The label of a test is the name of the folder that registers it (unit, module, pictures, ...); the target
# tests_<label> builds all executables of a label.

set(ORL_HAVE_GTEST OFF)
if(BUILD_TESTING)
    if(WIN32)
        # Debian has no GoogleTest for Windows, but packs its sources.
        set(ORL_GTEST_SOURCES /usr/src/googletest)
        if(EXISTS ${ORL_GTEST_SOURCES}/CMakeLists.txt)
            set(INSTALL_GTEST OFF)
            add_subdirectory(${ORL_GTEST_SOURCES} googletest EXCLUDE_FROM_ALL SYSTEM)
            set(ORL_HAVE_GTEST ON)
        endif()
    else()
        find_package(GTest QUIET)
        set(ORL_HAVE_GTEST ${GTest_FOUND})
    endif()
    if(NOT ORL_HAVE_GTEST)
        if(ORL_REQUIRE_TESTS)
            message(FATAL_ERROR "GoogleTest is not installed; tools/setup check installs it")
        endif()
        message(STATUS "GoogleTest is not installed: tests are left out")
    endif()

    # Where tests find their data and may write. A header, not compiler flags, so that only those tests that
    # include it are compiled anew in another folder.
    set(ORL_TEST_OUTPUT_DIR ${PROJECT_BINARY_DIR}/test_output)
    file(MAKE_DIRECTORY ${ORL_TEST_OUTPUT_DIR})
    configure_file(${CMAKE_CURRENT_LIST_DIR}/test_paths.h.in ${PROJECT_BINARY_DIR}/test_include/test_paths.h)
endif()

# Presets build these two by name, so they exist even while nothing belongs to them.
add_custom_target(tests_unit)
add_custom_target(tests_module)

# Gives a registered test its label and time limit.
function(orl_label_test name timeout)
    get_filename_component(label ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    math(EXPR limit "${timeout} * ${ORL_TEST_TIMEOUT_FACTOR}")
    set_tests_properties(${name} PROPERTIES LABELS ${label} TIMEOUT ${limit})
endfunction()

# Lets tests_<label> build the targets that follow.
function(orl_build_with_label)
    get_filename_component(label ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    if(NOT TARGET tests_${label})
        add_custom_target(tests_${label})
    endif()
    add_dependencies(tests_${label} ${ARGN})
endfunction()

# orl_add_test(name SOURCES file... [LIBS target...] [LOADS target...] [TIMEOUT seconds] [SERIAL])
#
# A GoogleTest (and GoogleMock) executable with the library's own main function. LOADS names libraries that
# the test opens while it runs: they are built first, and each one's path is the string macro
# ORL_FILE_<TARGET>. SERIAL keeps other tests from running at the same time (measurements).
function(orl_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "SERIAL" "TIMEOUT" "SOURCES;LIBS;LOADS")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "orl_add_test(${name}): unknown arguments ${arg_UNPARSED_ARGUMENTS}")
    endif()
    if(NOT ORL_HAVE_GTEST)
        return()
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()

    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} orl_platform orl_warnings GTest::gmock_main)
    target_include_directories(${name} PRIVATE ${PROJECT_BINARY_DIR}/test_include)
    # Optimising the tests' own code costs more than it saves: they run in seconds, and compiling them is half of a
    # build. What they link is optimised as ever; what headers give them is not.
    target_compile_options(${name} PRIVATE -O0)
    foreach(library IN LISTS arg_LOADS)
        string(TOUPPER ${library} macro)
        target_compile_definitions(${name} PRIVATE ORL_FILE_${macro}="$<TARGET_FILE:${library}>")
        add_dependencies(${name} ${library})
    endforeach()
    orl_build_with_label(${name})

    add_test(NAME ${name} COMMAND ${name})
    orl_label_test(${name} ${arg_TIMEOUT})
    if(arg_SERIAL)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL ON)
    endif()
    if(WIN32)
        # Windows looks for the libraries of an executable beside it and in the search path.
        set(dlls "")
        foreach(library IN LISTS arg_LIBS arg_LOADS)
            if(TARGET ${library})
                get_target_property(type ${library} TYPE)
                if(type STREQUAL "SHARED_LIBRARY" OR type STREQUAL "MODULE_LIBRARY")
                    list(APPEND dlls "ORL_DLL_DIRS=path_list_append:$<TARGET_FILE_DIR:${library}>")
                endif()
            endif()
        endforeach()
        set_tests_properties(${name} PROPERTIES ENVIRONMENT_MODIFICATION "${dlls}")
    endif()
endfunction()

# orl_add_command_test(name COMMAND command... [DEPENDS target...] [TIMEOUT seconds])
#
# A test that is a command; success is exit code 0. A target's name as the first word stands for its
# executable. DEPENDS names targets that are built before.
function(orl_add_command_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "COMMAND;DEPENDS")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    if(arg_DEPENDS)
        orl_build_with_label(${arg_DEPENDS})
    endif()
    add_test(NAME ${name} COMMAND ${arg_COMMAND})
    orl_label_test(${name} ${arg_TIMEOUT})
endfunction()

# orl_add_fuzz_test(name SOURCES file... [LIBS target...] CORPUS folder [SECONDS seconds])
#
# A libFuzzer target (the sources define LLVMFuzzerTestOneInput) and a test that runs it for SECONDS
# (default 20), starting from the inputs in the source folder CORPUS. New inputs stay in the build folder.
# Only in builds with ORL_FUZZ; the target `fuzzers` builds all of them.
function(orl_add_fuzz_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "CORPUS;SECONDS" "SOURCES;LIBS")
    if(NOT ORL_FUZZ)
        return()
    endif()
    if(NOT arg_SECONDS)
        set(arg_SECONDS 20)
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} orl_platform orl_warnings)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    if(NOT TARGET fuzzers)
        add_custom_target(fuzzers)
    endif()
    add_dependencies(fuzzers ${name})

    # libFuzzer writes new inputs to the first folder and only reads the second.
    set(found ${CMAKE_CURRENT_BINARY_DIR}/${name}_corpus)
    file(MAKE_DIRECTORY ${found})
    cmake_path(ABSOLUTE_PATH arg_CORPUS BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    add_test(NAME ${name} COMMAND ${name} -max_total_time=${arg_SECONDS} -timeout=5 -rss_limit_mb=2048
        -print_final_stats=1 ${found} ${arg_CORPUS})
    math(EXPR limit "${arg_SECONDS} + 60")
    set_tests_properties(${name} PROPERTIES LABELS fuzz TIMEOUT ${limit})
endfunction()
