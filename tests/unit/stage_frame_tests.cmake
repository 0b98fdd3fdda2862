# What a frame is made of: the camera, films, picture files, messages.
if(TARGET libstage)
    find_package(OpenImageIO REQUIRED)
    orl_add_test(stage_frame_test
        SOURCES stage_camera_test.cpp stage_demands_test.cpp stage_film_test.cpp stage_message_log_test.cpp
                stage_picture_test.cpp stage_statistics_test.cpp
        LIBS libstage OpenImageIO::OpenImageIO)
endif()
