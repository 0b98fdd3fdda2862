# Tone operators.
orl_add_test(toneop_test SOURCES toneop_test.cpp LIBS orlshaders_objects test_support)
