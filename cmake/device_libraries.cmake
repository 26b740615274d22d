# The device's own platform libraries, for a build without the stand-ins (the
# Android build with the NDK). They get the stand-ins' target names, so the
# rest of the build does not care which it links.
#
# liblog and libnativewindow, and the headers of all three NDK interfaces,
# come from the NDK's sysroot; system properties are part of the device's
# libc. The two closed libraries come from the device itself (its
# /system/lib): point UVC_DEVICE_LIBRARY_DIR at a folder holding copies, or
# name each file with UVC_COMPOSITORBRIDGE_LIBRARY / UVC_CONVFACT_LIBRARY.
# Their interface headers are this repository's include/trevo.
set(UVC_DEVICE_LIBRARY_DIR "" CACHE PATH "Folder holding the device's closed libraries")
# Empty on Android, where libc has __system_property_get.
set(UVC_PROPERTIES_LIBRARY "" CACHE FILEPATH "Library with __system_property_get, when not libc")

function(uvc_device_library target var name)
    if(UVC_DEVICE_LIBRARY_DIR)
        # Copied from the device, not part of the sysroot: searched as given.
        find_library(${var} NAMES ${name} PATHS ${UVC_DEVICE_LIBRARY_DIR}
            NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    endif()
    find_library(${var} NAMES ${name})
    if(NOT ${var})
        message(FATAL_ERROR "lib${name}.so of the device not found: set -D${var}=/path/to/lib${name}.so"
            " or -DUVC_DEVICE_LIBRARY_DIR=/folder/with/it")
    endif()
    add_library(${target} SHARED IMPORTED)
    set_target_properties(${target} PROPERTIES IMPORTED_LOCATION ${${var}})
    message(STATUS "Device library ${target}: ${${var}}")
endfunction()

uvc_device_library(platform_log UVC_LOG_LIBRARY log)
uvc_device_library(platform_nativewindow UVC_NATIVEWINDOW_LIBRARY nativewindow)
uvc_device_library(platform_compositorbridge UVC_COMPOSITORBRIDGE_LIBRARY compositorbridge.trevo)
uvc_device_library(platform_convfact UVC_CONVFACT_LIBRARY convfact.trevo)
foreach(lib compositorbridge convfact)
    set_target_properties(platform_${lib} PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES ${PROJECT_SOURCE_DIR}/include)
endforeach()

add_library(platform_properties INTERFACE IMPORTED)
if(UVC_PROPERTIES_LIBRARY)
    set_target_properties(platform_properties PROPERTIES INTERFACE_LINK_LIBRARIES ${UVC_PROPERTIES_LIBRARY})
endif()
