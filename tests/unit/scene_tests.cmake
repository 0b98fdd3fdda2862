# The stage's scene and its language.
if(TARGET stage_scene)
    add_library(mi_test_shaders MODULE mi_test_shaders.cpp)
    set_target_properties(mi_test_shaders PROPERTIES PREFIX "")
    target_link_libraries(mi_test_shaders PRIVATE orl_platform orl_warnings)
    orl_add_test(scene_test SOURCES scene_triangulate_test.cpp scene_library_test.cpp
                 LIBS stage_scene LOADS mi_test_shaders)
    orl_add_test(mi_test
                 SOURCES mi_elements_test.cpp mi_errors_test.cpp mi_object_test.cpp mi_shader_test.cpp
                 LIBS stage_scene)
endif()
