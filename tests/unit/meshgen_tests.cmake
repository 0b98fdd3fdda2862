if(TARGET meshgen_shapes)
    orl_add_test(meshgen_test SOURCES meshgen_test.cpp LIBS meshgen_shapes)
endif()
