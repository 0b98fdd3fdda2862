# What `cmake --install` lays out is complete.
if(TARGET orlshaders AND NOT CMAKE_CROSSCOMPILING AND NOT ORL_SANITIZE
   AND ORL_RENDERER_INCLUDE_DIR STREQUAL "${PROJECT_SOURCE_DIR}/platform/include")
    orl_add_command_test(install_and_use
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/install-and-use ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR}
            ${CMAKE_C_COMPILER} ${ORL_TEST_OUTPUT_DIR}/install
        DEPENDS orlshaders orlshaders_mi)
endif()
