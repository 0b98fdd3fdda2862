# The shader module's shared parts and its small shaders.
orl_add_test(binding_test SOURCES binding_test.cpp LIBS orlshaders_objects test_support
    LOADS scripted_renderer)
orl_add_test(entry_protocol_test SOURCES entry_protocol_test.cpp call_material_test.cpp
    LIBS orlshaders_objects test_support)
orl_add_test(context_test SOURCES context_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(host_data_test SOURCES host_data_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(utilshaders_test SOURCES utilshaders_test.cpp gbuffer_lens_test.cpp
    LIBS orlshaders_objects test_support)
orl_add_test(declaration_test SOURCES declaration_test.cpp LIBS orlshaders_objects)
