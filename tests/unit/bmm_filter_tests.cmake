# Image filters.
orl_add_test(bmm_filter_test SOURCES bmm_filter_test.cpp LIBS orlshaders_objects test_support)
