# Maps over images, and bumps.
orl_add_test(tex_bitmap_test SOURCES tex_bitmap_test.cpp orl_bump_test.cpp
    LIBS orlshaders_objects test_support)
