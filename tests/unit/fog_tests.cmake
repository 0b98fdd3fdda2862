# The atmosphere.
orl_add_test(fog_test SOURCES fog_test.cpp LIBS orlshaders_objects test_support)
