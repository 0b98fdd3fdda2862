# The published functions over a small scene.
if(TARGET libstage)
    orl_add_test(stage_api_test
        SOURCES stage_api_directions_test.cpp stage_api_models_test.cpp stage_api_queries_test.cpp
                stage_api_spaces_test.cpp stage_api_textures_test.cpp
                stage_light_maps_test.cpp
        LIBS libstage OpenImageIO::OpenImageIO)
endif()
