# The rasterizer and ray tracing make the same picture, by hand and of each other: 4 layers of colours up to 1, each of
# some roundings of 2^-24.
orl_add_picture_test(stage/rasterizer 320 240)
orl_add_pair_test(rasterizer_traced stage "rasterizer;panes_traced" 320 240
    panes_traced.exr --reference rasterizer.exr --within 1e-6 --output ${ORL_TEST_OUTPUT_DIR}/rasterizer_traced)
