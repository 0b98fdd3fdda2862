# The light loop, and render elements.
orl_add_test(rendelem_test SOURCES rendelem_test.cpp LIBS orlshaders_objects test_support)
