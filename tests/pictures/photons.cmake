# Photons. Lenses spread roundings, so that camera space brings other ones: as noisy as other seeds, no more.
orl_add_picture_test(stage/photon_room 80 60)
foreach(scene IN ITEMS "caustic 160 100" "photon_volume 160 120")
    separate_arguments(scene)
    list(POP_FRONT scene name)
    set(noise ${CMAKE_CURRENT_SOURCE_DIR}/reference/${name}_noise.exr)
    orl_add_picture_test(stage/${name} ${scene} --noise ${noise})
    set(folder ${ORL_TEST_OUTPUT_DIR}/${name}_camera_space)
    orl_add_steps_test(picture_${name}_camera_space ${folder}
        $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/stage/${name}.mi -o ${folder}/${name}.exr
        ${libraries} --resolution ${scene} --space camera --
        $<TARGET_FILE:picture_check> ${folder}/${name}.exr --noise ${noise})
endforeach()
