# Coordinate generators over (u, v).
orl_add_test(orl_stduv_test SOURCES orl_stduv_test.cpp LIBS orlshaders_objects test_support)
