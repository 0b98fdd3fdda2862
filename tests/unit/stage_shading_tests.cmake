# Shader calls, rays, lights and shadows of the stage, with shaders written in the tests.
if(TARGET libstage)
    orl_add_test(stage_shading_test
        SOURCES stage_calls_test.cpp stage_lights_test.cpp stage_output_test.cpp stage_raster_test.cpp
                stage_rays_test.cpp stage_sampling_test.cpp stage_world_test.cpp
        LIBS libstage)
    target_include_directories(stage_shading_test PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
endif()
