# Final gathering. Scenes with known answers.
orl_add_picture_test(stage/furnace 160 120)
orl_add_picture_test(stage/white_room 160 120)
orl_add_picture_test(stage/bright_panel 16 12)

set(folder ${ORL_TEST_OUTPUT_DIR}/gathered_room)
orl_add_steps_test(picture_gathered_room ${folder}
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/gathered_room.mi -o ${folder}/gathered_room.exr ${libraries}
    --resolution 16 12 --samples 256 -- $<TARGET_FILE:picture_check> ${folder}/gathered_room.exr --output ${folder}
    --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected/gathered_room.txt)

set(folder ${ORL_TEST_OUTPUT_DIR}/coloured_room)
set(commands "")
foreach(space IN ITEMS world camera)
    list(APPEND commands -- $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/coloured_room.mi
        -o ${folder}/${space}.exr ${libraries} --resolution 16 12 --samples 16 --space ${space}
        -- $<TARGET_FILE:picture_check> ${folder}/${space}.exr --output ${folder}
        --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected/coloured_room.txt)
endforeach()
list(POP_FRONT commands)
orl_add_steps_test(picture_coloured_room ${folder} ${commands})

set(folder ${ORL_TEST_OUTPUT_DIR}/white_sphere)
set(judge $<TARGET_FILE:picture_check> --output ${folder} --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected)
orl_add_steps_test(picture_white_sphere ${folder}
    $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/white_sphere.mi -o ${folder}/ball.exr ${libraries}
    --resolution 16 12 -- ${judge}/white_sphere_1.txt ${folder}/ball.0001.exr
    -- ${judge}/white_sphere_2.txt ${folder}/ball.0002.exr)
