# The noise of maps and atmospheres.
orl_add_test(noise_test SOURCES noise_test.cpp LIBS orlshaders_objects test_support)
