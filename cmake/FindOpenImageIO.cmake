# Finds OpenImageIO and offers the target OpenImageIO::OpenImageIO.
#
# Debian's own package file names programs, OpenCV's headers and Python modules that its development package
# does not bring along, so that it fails unless all of them are installed. The libraries need none of them.

find_path(OpenImageIO_INCLUDE_DIR OpenImageIO/imageio.h)
find_library(OpenImageIO_LIBRARY OpenImageIO)
find_library(OpenImageIO_Util_LIBRARY OpenImageIO_Util)
mark_as_advanced(OpenImageIO_INCLUDE_DIR OpenImageIO_LIBRARY OpenImageIO_Util_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(OpenImageIO
    REQUIRED_VARS OpenImageIO_LIBRARY OpenImageIO_Util_LIBRARY OpenImageIO_INCLUDE_DIR)

if(OpenImageIO_FOUND AND NOT TARGET OpenImageIO::OpenImageIO)
    add_library(OpenImageIO::OpenImageIO SHARED IMPORTED)
    set_target_properties(OpenImageIO::OpenImageIO PROPERTIES
        IMPORTED_LOCATION ${OpenImageIO_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${OpenImageIO_INCLUDE_DIR}
        INTERFACE_LINK_LIBRARIES ${OpenImageIO_Util_LIBRARY})
endif()
