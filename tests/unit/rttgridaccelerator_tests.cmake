# Render to texture.
orl_add_test(rttgridaccelerator_test SOURCES rttgridaccelerator_test.cpp LIBS orlshaders_objects test_support)
