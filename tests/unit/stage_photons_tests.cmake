# Photons of the stage: what lights send, what is kept of it and how densely it lies.
if(TARGET libstage)
    orl_add_test(stage_photons_test SOURCES stage_photons_test.cpp LIBS libstage)
    target_include_directories(stage_photons_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
endif()
