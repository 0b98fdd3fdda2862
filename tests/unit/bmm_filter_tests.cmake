# Image filters.
orl_add_test(bmm_filter_test SOURCES bmm_filter_test.cpp LIBS orlshaders_objects test_support)
if(TARGET libstage)
    # Levels beside those that OpenImageIO makes.
    orl_add_test(bmm_levels_test SOURCES bmm_levels_test.cpp
        LIBS orlshaders_objects test_support OpenImageIO::OpenImageIO)
endif()
