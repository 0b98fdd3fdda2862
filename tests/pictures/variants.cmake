# Every scene with one thread, with two, and in camera space as internal space: the first two bit for bit. In camera
# space coordinates are other numbers, and so is their rounding. Where it moves a sample from one side of an edge to the
# other, the pixel is off. Measured at 64 by 48 pixels and 4 samples: of 64 scenes 51 have no pixel that is off by more
# than 1e-4, 7 have one or two of 3072.
function(orl_add_scene_variants scene share)
    get_filename_component(name ${scene} NAME_WE)
    get_filename_component(folder ${scene} DIRECTORY)
    get_filename_component(folder ${folder} NAME)
    set(size 64 48)
    if(DEFINED variants_size_${name})
        set(size ${variants_size_${name}})
    endif()
    orl_add_command_test(picture_variants_${folder}_${name}
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/render_variants ${ORL_TEST_OUTPUT_DIR}/variants_${folder}_${name}
            $<TARGET_FILE:picture_check> ${share} $<TARGET_FILE:stage> ${scene}
            ${libraries} --resolution ${size} --samples 4 --quiet
        DEPENDS stage stage_base architectural orlshaders orlshaders_mi scene_meshes picture_check)
endfunction()

file(GLOB_RECURSE scenes CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/scenes/*.mi)
# Scenes that are edges everywhere, with what was measured, in pixels of 3072:
set(variants_share_campfire 0.006) # 13: the lower ends of flames
set(variants_share_bake 0.008) # 17: rims of shadows on the ball, whose texels are the pixels
set(variants_share_showcase 0.012) # 28: curved mirrors and soft shadows, all below 0.002
set(variants_share_pseudo 0.004) # 8: a palette spreads what is nearly black
# 513 and 634: rings that are finer than a pixel, so that roundings of the texture's coordinate are large in them.
set(variants_share_zone_plate 0.25)
set(variants_share_zone_plate_reference 0.25)
# Threads only: a rounding leads rays elsewhere, so that camera space brings other noise, not more of it. Measured at 64
# by 48 pixels: caustic and photon_volume differ nearly everywhere by their noise, by which they are judged in camera space
# below; of gathered_room 157 of 3072 pixels differ, by at most 0.002.
set(variants_of_threads caustic photon_volume gathered_room coloured_room white_sphere)
# Gathering has its price for each pixel.
set(variants_size_bright_panel 16 12)
set(variants_size_coloured_room 16 12)
set(variants_size_white_sphere 16 12)
# These show what a first run bakes.
list(FILTER scenes EXCLUDE REGEX "/baking/(board_)?baked\\.mi$")
foreach(scene IN LISTS scenes)
    file(STRINGS ${scene} renders REGEX "^[ \t]*render[ \t]")
    if(NOT renders)
        continue()
    endif()
    get_filename_component(name ${scene} NAME_WE)
    set(share 0.001)
    if(name IN_LIST variants_of_threads)
        set(share threads)
    endif()
    if(DEFINED variants_share_${name})
        set(share ${variants_share_${name}})
    endif()
    orl_add_scene_variants(${scene} ${share})
endforeach()
