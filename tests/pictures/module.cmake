# The families of the module: their boards, and laws that pictures obey.
foreach(scene IN ITEMS wire_color node_visibility editor_background image_gamma gbuffer placeholders lights fog groups
        shadow_off shadow_simple shadow_sort shadow_segments)
    orl_add_picture_test(utility/${scene} 160 120)
endforeach()
orl_add_picture_test(first 160 120)
orl_add_picture_test(lights/black_body 256 128)
orl_add_picture_test(lights/light_board 240 200)
orl_add_picture_test(lights/shadow_colors 240 160)
orl_add_picture_test(lights/excluded 160 80)
orl_add_picture_test(materials/material_board 280 140)
# The ball of the gallery's sweeps, as it was when somebody looked.
orl_add_picture_test(materials/one_ball 160 120)
foreach(scene IN ITEMS transparency wire glass_mirror blend)
    orl_add_picture_test(materials/${scene} 264 128)
endforeach()
orl_add_picture_test(maps/output_stage 160 120)
# Coordinates as colours, by hand.
orl_add_picture_test(maps/coordinates 240 120)
orl_add_picture_test(maps/map_board 280 120)
orl_add_picture_test(maps/placement 480 320)
orl_add_picture_test(maps/graded 240 180)
orl_add_picture_test(maps/environments 240 180)
orl_add_picture_test(maps/levels 240 160)
orl_add_picture_test(maps/noise_blur 160 120)
orl_add_picture_test(elements/elements 128 72)
orl_add_picture_test(elements/components 320 180 --sum fb_re\#0 fb_re\#1 fb_re\#2 fb_re\#3 fb_re\#4)
orl_add_picture_test(showcase 160 90)
foreach(scene IN ITEMS standard_fog layered_fog horizon_noise horizon_noise_narrow horizon_noise_wide)
    orl_add_picture_test(atmosphere/${scene} 240 120)
endforeach()
orl_add_picture_test(atmosphere/board_standard_fog 280 140)
orl_add_picture_test(atmosphere/board_layered_fog 280 140)
foreach(scene IN ITEMS valley fires even_fires)
    orl_add_picture_test(atmosphere/${scene} 192 96)
endforeach()
orl_add_picture_test(atmosphere/volume_fog 192 80)
orl_add_picture_test(atmosphere/campfire 160 120)
orl_add_picture_test(atmosphere/explosion 160 80)
foreach(scene IN ITEMS input log log_night pseudo pseudo_grey photo)
    orl_add_picture_test(tone/${scene} 160 90)
endforeach()

# Two laws of light: a mirrored world gives a mirrored picture, and two lights of half the energy are one light. Sums are
# taken in another order then, so rounding may differ: sums of 16 samples and of 5 or 10 lights, which are up to 1,
# round 24 times by 2^-24, and so does the picture that they are compared with: 3e-6. Measured: 1.2e-7 in both.
orl_add_picture_test(materials/mirrored 300 60 --mirrored --within 3e-6)
orl_add_pair_test(halved_lights materials "mirrored;halved_lights" 300 60
    halved_lights.exr --reference mirrored.exr --within 3e-6 --output ${ORL_TEST_OUTPUT_DIR}/halved_lights)

# Images in the distance, beside the same with 256 samples, within 10 degrees below the horizon. A zone plate is on
# pi / 4 of its square 0.5 cos(x), whose root mean square is 0.31; a point sample is off the mean by that, but for what
# the pixels near the middle still resolve. The mean of 256 keeps 0.02 of it, and some rings whose width fits the
# samples' distance. Measured: 0.266 for point samples, 0.032 filtered.
orl_add_pair_test(zone_plate maps "zone_plate;zone_plate_reference" 180 120
    zone_plate.exr --reference zone_plate_reference.exr --rms 0 80 90 30 0.25 0.32 --rms 90 80 90 30 0 0.04)
