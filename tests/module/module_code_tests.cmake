# What the built module shows and what it is made of.
if(TARGET orlshaders)
    find_program(ORL_BASH bash REQUIRED)
    # With clang, CMake takes LLVM's objdump, which prints another notation.
    set(objdump ${CMAKE_OBJDUMP})
    if(NOT CMAKE_CROSSCOMPILING)
        find_program(ORL_OBJDUMP objdump REQUIRED)
        set(objdump ${ORL_OBJDUMP})
    endif()
    if(TARGET orlshaders_mi)
        orl_add_command_test(module_shown
            COMMAND ${ORL_BASH} ${CMAKE_CURRENT_SOURCE_DIR}/shown ${objdump} $<TARGET_FILE:orlshaders>
                ${PROJECT_BINARY_DIR}/shader/orlshaders.mi ${CMAKE_CURRENT_SOURCE_DIR}/shown.txt
            DEPENDS orlshaders orlshaders_mi)
    endif()
endif()
# Code is only what it should be in optimised builds.
if(TARGET orlshaders AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT ORL_SANITIZE)
    orl_add_command_test(forwarding_code
        COMMAND ${ORL_BASH} ${CMAKE_CURRENT_SOURCE_DIR}/forwarding-code ${objdump}
            $<TARGET_FILE:orlshaders> ${PROJECT_SOURCE_DIR}/shader/include/mi_binding.h
        DEPENDS orlshaders)
    orl_add_command_test(no_help_texts
        COMMAND ${ORL_BASH} ${CMAKE_CURRENT_SOURCE_DIR}/no-help-texts $<TARGET_FILE:orlshaders>
            ${PROJECT_SOURCE_DIR}/docs/shaders
        DEPENDS orlshaders)
endif()
# The shaders' pages say what the declarations say.
if(TARGET orl_declare)
    orl_add_command_test(shader_pages
        COMMAND orl_declare --check-pages ${PROJECT_SOURCE_DIR}/docs/shaders
        DEPENDS orl_declare)
endif()
