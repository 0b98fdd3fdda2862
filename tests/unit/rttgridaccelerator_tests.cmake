# Render to texture.
orl_add_test(rttgridaccelerator_test SOURCES rttgridaccelerator_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(orl_rtt_test SOURCES orl_rtt_test.cpp LIBS orlshaders_objects test_support)
