orl_add_test(kit_test
    SOURCES kit_image_test.cpp kit_matrix_test.cpp kit_memory_test.cpp
        kit_random_test.cpp kit_shader_state_test.cpp
    LIBS stage_kit)
