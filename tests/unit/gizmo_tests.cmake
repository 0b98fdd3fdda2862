# Gizmos and what fills them: volume fog and fire.
orl_add_test(fire_test SOURCES fire_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(gizmo_test SOURCES gizmo_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(vfog_test SOURCES vfog_test.cpp LIBS orlshaders_objects test_support)
