# The standard material and the compound materials.
orl_add_test(material_test SOURCES material_test.cpp blend_test.cpp LIBS orlshaders_objects test_support)
