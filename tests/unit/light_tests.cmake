# The lights and what belongs to them.
orl_add_test(light_test SOURCES light_test.cpp LIBS orlshaders_objects test_support)
