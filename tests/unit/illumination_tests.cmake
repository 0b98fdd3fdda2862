# What illumination models share, and every model under one contract.
orl_add_test(illumination_test SOURCES illumination_models_test.cpp
    LIBS orlshaders_objects test_support)
orl_add_test(lightmeter_test SOURCES lightmeter_test.cpp LIBS orlshaders_objects test_support)
