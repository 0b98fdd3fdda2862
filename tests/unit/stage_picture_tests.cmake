# Graded colours and formats of pictures, state shaders, tags that name nothing.
if(TARGET libstage)
    find_package(OpenImageIO REQUIRED)
    orl_add_test(stage_grading_test SOURCES stage_grading_test.cpp LIBS libstage OpenImageIO::OpenImageIO)
    orl_add_test(stage_state_shaders_test SOURCES stage_state_shaders_test.cpp stage_adaptive_test.cpp LIBS libstage)
    if(TARGET stage_state_shaders_test)
        target_include_directories(stage_state_shaders_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
    endif()
endif()
