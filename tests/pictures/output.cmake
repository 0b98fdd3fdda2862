# Frame buffers of every type, the colours of pictures for a display, an animation, and a render that is stopped.
orl_add_picture_test(stage/frame_buffers 160 120)

set(folder ${ORL_TEST_OUTPUT_DIR}/image_output)
set(judge $<TARGET_FILE:picture_check> --output ${folder} --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected)
orl_add_steps_test(picture_image_output ${folder}
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/image_output.mi -o ${folder}/image_output.exr
    -o ${folder}/image_output.png ${libraries} -- ${judge}/image_output.txt ${folder}/image_output.exr
    -- ${judge}/image_output_png.txt ${folder}/image_output.png)

set(folder ${ORL_TEST_OUTPUT_DIR}/animation)
set(judge $<TARGET_FILE:picture_check> --output ${folder} --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected)
orl_add_steps_test(picture_animation ${folder}
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/animation.mi -o ${folder}/frame.exr ${libraries}
    -- ${judge}/animation_1.txt ${folder}/frame.0001.exr -- ${judge}/animation_2.txt ${folder}/frame.0002.exr
    -- ${judge}/animation_3.txt ${folder}/frame.0003.exr)
orl_add_command_test(stage_interrupted
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/interrupted_render ${ORL_TEST_OUTPUT_DIR}/interrupted
        $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/baking/bake.mi ${libraries} --resolution 64 64
    DEPENDS stage stage_base orlshaders orlshaders_mi scene_meshes)
