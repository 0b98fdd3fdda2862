# The rasterizer and ray tracing make the same picture, by hand and of each other: 4 layers of colours up to 1, each of
# some roundings of 2^-24.
orl_add_picture_test(stage/rasterizer 320 240)

set(folder ${ORL_TEST_OUTPUT_DIR}/rasterizer_traced)
set(renders "")
foreach(scene IN ITEMS rasterizer panes_traced)
    list(APPEND renders $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/${scene}.mi -o ${folder}/${scene}.exr
        ${libraries} --resolution 320 240 --)
endforeach()
orl_add_steps_test(picture_rasterizer_traced ${folder}
    ${renders} $<TARGET_FILE:picture_check>
    ${folder}/panes_traced.exr --reference ${folder}/rasterizer.exr --within 1e-6 --output ${folder})
