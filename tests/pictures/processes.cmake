# Several processes: a picture whose filter reaches across buckets, and a scene of several frames.
find_program(ORL_MPIRUN mpirun)
mark_as_advanced(ORL_MPIRUN)
if(TARGET stage_mpi AND ORL_MPIRUN)
    foreach(scene IN ITEMS showcase=160=90 atmosphere/explosion_frames=48=48 stage/photon_room=40=30)
        string(REPLACE "=" ";" scene ${scene})
        list(POP_FRONT scene path width height)
        get_filename_component(name ${path} NAME)
        orl_add_command_test(picture_together_${name}
            COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/render_together ${ORL_TEST_OUTPUT_DIR}/together_${name}
                $<TARGET_FILE:stage> ${PROJECT_SOURCE_DIR}/scenes/${path}.mi ${libraries} --resolution ${width} ${height}
            DEPENDS stage stage_mpi stage_base orlshaders orlshaders_mi scene_meshes)
    endforeach()
elseif(ORL_REQUIRE_TESTS AND ORL_STAGE_MPI)
    message(FATAL_ERROR "Open MPI is not installed; tools/setup check installs it")
endif()
