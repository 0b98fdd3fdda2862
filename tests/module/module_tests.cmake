if(TARGET orlshaders)
    orl_add_test(module_test SOURCES module_test.cpp module_exports.cpp header_as_c.c
        LIBS test_support LOADS orlshaders scripted_renderer)
    if(ORL_HAVE_GTEST)
        target_include_directories(module_test PRIVATE ${PROJECT_SOURCE_DIR}/shader/include)
        target_compile_definitions(module_test PRIVATE
            ORL_FILE_DECLARATIONS="${PROJECT_BINARY_DIR}/shader/orlshaders.mi")
        target_link_libraries(module_test PRIVATE ${CMAKE_DL_LIBS})
    endif()
endif()
if(TARGET orlshaders_mi AND TARGET stage_scene)
    orl_add_test(declarations_test SOURCES declarations_test.cpp LIBS stage_scene)
    if(ORL_HAVE_GTEST)
        add_dependencies(declarations_test orlshaders_mi)
        target_compile_definitions(declarations_test PRIVATE
            ORL_FILE_DECLARATIONS="${PROJECT_BINARY_DIR}/shader/orlshaders.mi")
    endif()
endif()
