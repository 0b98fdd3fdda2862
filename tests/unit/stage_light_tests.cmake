# Light profiles, and which lights act where.
if(TARGET libstage)
    orl_add_test(stage_light_test SOURCES stage_light_lists_test.cpp stage_light_profile_test.cpp LIBS libstage)
    target_include_directories(stage_light_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
endif()
