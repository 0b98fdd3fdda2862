# What maps share as shaders of their own: coordinates over three dimensions, output stage, curves.
orl_add_test(stdxyz_test SOURCES stdxyz_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(output_test SOURCES output_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(curve_test SOURCES curve_test.cpp LIBS orlshaders_objects test_support)
