# Final gathering.
if(TARGET libstage)
    orl_add_test(stage_gather_test SOURCES stage_gather_test.cpp LIBS libstage)
    target_include_directories(stage_gather_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
endif()
