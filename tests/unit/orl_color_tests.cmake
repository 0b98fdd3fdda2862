# Colours by temperature.
orl_add_test(orl_color_test SOURCES orl_color_test.cpp LIBS orlshaders_objects test_support)
