if(TARGET orlshaders)
    orl_add_test(module_test SOURCES module_test.cpp header_as_c.c
        LIBS test_support LOADS orlshaders scripted_renderer)
    if(ORL_HAVE_GTEST)
        target_include_directories(module_test PRIVATE ${PROJECT_SOURCE_DIR}/shader/include)
    endif()
endif()
if(TARGET orlshaders)
    orl_add_test(results_test SOURCES results_test.cpp LIBS test_support LOADS orlshaders scripted_renderer)
    if(ORL_HAVE_GTEST)
        target_compile_definitions(results_test PRIVATE
            ORL_FILE_RESULTS="${CMAKE_CURRENT_SOURCE_DIR}/results.txt")
    endif()
endif()
