# The judge has to notice: shadows that are missing altogether.
set(unshadowed ${CMAKE_CURRENT_SOURCE_DIR}/reference/shadow_off.exr)
orl_add_command_test(picture_check_sees_values COMMAND picture_check ${unshadowed}
    --expect ${CMAKE_CURRENT_SOURCE_DIR}/expected/shadow_sort.txt DEPENDS picture_check)
orl_add_command_test(picture_check_sees_pictures COMMAND picture_check ${unshadowed}
    --reference ${CMAKE_CURRENT_SOURCE_DIR}/reference/shadow_sort.exr
    --output ${CMAKE_CURRENT_BINARY_DIR}/judge DEPENDS picture_check) # not among the pictures of tests that failed
set_tests_properties(picture_check_sees_values picture_check_sees_pictures PROPERTIES WILL_FAIL ON)
