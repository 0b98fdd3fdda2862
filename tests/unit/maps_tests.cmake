# The pattern and compositing maps.
orl_add_test(maps_test SOURCES maps_test.cpp LIBS orlshaders_objects test_support)
