# Lights of the stage: their areas, the lists that say where they act, measured lamps.
foreach(scene IN ITEMS area_lights light_lists light_profiles)
    orl_add_picture_test(stage/${scene} 160 120)
endforeach()

# Textures: light maps baked before the picture, the light meter, colours by their profiles.
orl_add_picture_test(stage/light_map 240 80)
foreach(scene IN ITEMS light_meter colour_profile)
    orl_add_picture_test(stage/${scene} 160 120)
endforeach()

# Motion and lenses.
orl_add_picture_test(stage/motion_blur 160 120)
orl_add_picture_test(stage/moving_camera 160 120)
orl_add_picture_test(stage/depth_of_field 160 90)
