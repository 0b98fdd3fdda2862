# An animation: one shader's phase changes between frames. The reference of the 14th was rendered by itself, with its
# phase of 156 from the start, so that it shows whether anything of the frames before is left. Of the explosion nothing
# is there in the first frame, nor in the last.
set(folder ${ORL_TEST_OUTPUT_DIR}/explosion_frames)
orl_add_steps_test(picture_explosion_frames ${folder}
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/atmosphere/explosion_frames.mi -o ${folder}/frame.exr
    ${libraries} --resolution 48 48 -- $<TARGET_FILE:picture_check> ${folder}/frame.0014.exr --output ${folder}
    --reference ${CMAKE_CURRENT_SOURCE_DIR}/reference/explosion_frames.exr -- $<TARGET_FILE:picture_check>
    ${folder}/frame.0026.exr --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected/explosion_frames.txt
    --reference ${folder}/frame.0001.exr --within 0 --output ${folder})
