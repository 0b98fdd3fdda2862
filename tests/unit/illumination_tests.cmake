# What illumination models share, and every model under one contract.
orl_add_test(illumination_test SOURCES illumination_models_test.cpp
    LIBS orlshaders_objects test_support)
if(ORL_HAVE_GTEST)
    target_compile_definitions(illumination_test PRIVATE
        ORL_FILE_MATERIALS_PAGE="${PROJECT_SOURCE_DIR}/docs/materials.md")
endif()
orl_add_test(lightmeter_test SOURCES lightmeter_test.cpp LIBS orlshaders_objects test_support)
