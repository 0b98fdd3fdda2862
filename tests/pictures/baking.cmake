# A baked picture, and the scene that shows it.
set(folder ${ORL_TEST_OUTPUT_DIR}/baked)
set(commands "")
foreach(scene IN ITEMS bake=baked_ball=256=256 baked=baked=480=240)
    string(REPLACE "=" ";" scene ${scene})
    list(POP_FRONT scene name picture width height)
    list(APPEND commands -- $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/baking/${name}.mi
        -o ${folder}/${picture}.exr ${libraries} -L ${folder} --resolution ${width} ${height}
        -- $<TARGET_FILE:picture_check> ${folder}/${picture}.exr --output ${folder}/${name}
        --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected/${name}.txt)
endforeach()
list(POP_FRONT commands)
orl_add_steps_test(picture_baked ${folder}
    ${commands}
    --reference ${CMAKE_CURRENT_SOURCE_DIR}/reference/baked.exr)

set(folder ${ORL_TEST_OUTPUT_DIR}/board_baked)
orl_add_steps_test(picture_board_baked ${folder}
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/baking/board_bake.mi -o ${folder}/baked_clay.exr
    ${libraries} --resolution 256 256 --
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/baking/board_baked.mi -o ${folder}/board_baked.exr
    ${libraries} -L ${folder} --resolution 240 120 --
    $<TARGET_FILE:picture_check> ${folder}/board_baked.exr --output ${folder}
    --reference ${CMAKE_CURRENT_SOURCE_DIR}/reference/board_baked.exr)
