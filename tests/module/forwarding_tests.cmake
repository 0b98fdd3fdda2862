# The machine code of the forwarding functions; it is only what it should be in optimised builds.
if(TARGET orlshaders AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT ORL_SANITIZE)
    find_program(ORL_BASH bash REQUIRED)
    orl_add_command_test(forwarding_code
        COMMAND ${ORL_BASH} ${CMAKE_CURRENT_SOURCE_DIR}/forwarding-code ${CMAKE_OBJDUMP}
            $<TARGET_FILE:orlshaders> ${PROJECT_SOURCE_DIR}/shader/include/mi_binding.h
        DEPENDS orlshaders)
endif()
