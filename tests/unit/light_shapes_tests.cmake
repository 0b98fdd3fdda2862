# Shapes, attenuation and photons of the standard lights.
orl_add_test(light_shapes_test SOURCES light_shapes_test.cpp LIBS orlshaders_objects test_support)
