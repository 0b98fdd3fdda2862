# The light loop, and render elements.
orl_add_test(rendelem_test SOURCES light_loop_test.cpp rendelem_test.cpp stdelem_test.cpp
    LIBS orlshaders_objects test_support)
