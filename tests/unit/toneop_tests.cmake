# Tone operators.
orl_add_test(toneop_test SOURCES toneop_test.cpp LIBS orlshaders_objects test_support)
orl_add_test(toneopphoto_test SOURCES toneopphoto_test.cpp LIBS orlshaders_objects test_support
    LOADS architectural)
if(TARGET toneopphoto_test AND NOT WIN32)
    # By the loader's own list: an rpath of the test does not count where a sanitizer stands in for dlopen.
    set_tests_properties(toneopphoto_test PROPERTIES ENVIRONMENT_MODIFICATION
        LD_LIBRARY_PATH=path_list_prepend:$<TARGET_FILE_DIR:architectural>)
endif()
# The same operator where the library cannot be found.
orl_add_test(toneopphoto_alone_test SOURCES toneopphoto_test.cpp LIBS orlshaders_objects test_support)
