# What `cmake --install` puts under the prefix for the "library" component:
# libhidl_uvc_client.so, its public headers under include/hidl_uvc_client, the
# CMake package (find_package(hidl_uvc_client CONFIG) gives
# hidl_uvc_client::hidl_uvc_client) and hidl_uvc_client.pc. The stand-ins and
# uvc-host are the "workstation" component (platform/, tools/), the Linux
# UVC-gadget bridge and its launcher the "gadget" component
# (platform/trevo/uvcgadget/).
include(CMakePackageConfigHelpers)

set(uvc_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/hidl_uvc_client)
set(uvc_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/hidl_uvc_client)

install(TARGETS hidl_uvc_client EXPORT hidl_uvc_client
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT library)

# The public interface: the entry point and the exported base library. Every
# base/ header either carries UVC_EXPORT or is included by one that does.
install(FILES include/hidl_uvc_client.h include/uvc_export.h
    DESTINATION ${uvc_include_dir} COMPONENT library)
install(FILES
        base/AutoLock.h base/BlockingQueue.h base/Date.h base/Dictionary.h base/Functor0.h
        base/Log.h base/LogServer.h base/Logger.h base/Mutex.h base/Runnable.h base/Semaphore.h
        base/Serialization.h base/SystemUtil.h base/Thread.h base/ifaddrs.h
    DESTINATION ${uvc_include_dir}/base COMPONENT library)

install(EXPORT hidl_uvc_client
    NAMESPACE hidl_uvc_client::
    DESTINATION ${uvc_package_dir}
    FILE hidl_uvc_client-targets.cmake
    COMPONENT library)
configure_package_config_file(cmake/hidl_uvc_client-config.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-config.cmake
    INSTALL_DESTINATION ${uvc_package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
        ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-config.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-config-version.cmake
    DESTINATION ${uvc_package_dir} COMPONENT library)

# pkg-config files find the prefix from their own place, so that the tree can
# be installed with --prefix or moved.
set(uvc_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set(uvc_pc_prefix ${CMAKE_INSTALL_PREFIX})
    set(uvc_pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
    cmake_path(ABSOLUTE_PATH UVC_STANDINS_LIBDIR BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}
        OUTPUT_VARIABLE uvc_pc_standins_libdir)
    set(uvc_pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
    file(RELATIVE_PATH uvc_pc_up /${uvc_pc_dir} /)
    string(REGEX REPLACE "/$" "" uvc_pc_up "${uvc_pc_up}")
    set(uvc_pc_prefix "\${pcfiledir}/${uvc_pc_up}")
    set(uvc_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
    set(uvc_pc_standins_libdir "\${prefix}/${UVC_STANDINS_LIBDIR}")
    set(uvc_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()

if(NOT UVC_STANDINS)
    # A device build: programs for the device find the library in the
    # device's own folders.
    set(uvc_pc_rpath "")
    configure_file(cmake/hidl_uvc_client.pc.in ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client.pc DESTINATION ${uvc_pc_dir} COMPONENT library)
else()
    # A program linked with `pkg-config --libs` must find the library when it
    # runs, so Libs carry an rpath to the prefix's library folder, unless the
    # loader searches that folder anyway (a system prefix such as /usr). Which
    # one it is becomes known only at install time (--prefix), so both files
    # are made now and the install picks one.
    set(uvc_pc_rpath "-Wl,-rpath,\${libdir} ")
    configure_file(cmake/hidl_uvc_client.pc.in ${CMAKE_CURRENT_BINARY_DIR}/pc-rpath/hidl_uvc_client.pc @ONLY)
    set(uvc_pc_rpath "")
    configure_file(cmake/hidl_uvc_client.pc.in ${CMAKE_CURRENT_BINARY_DIR}/pc-system/hidl_uvc_client.pc @ONLY)
    set(uvc_system_libdirs ${CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES} ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})
    string(CONFIGURE [[
        set(uvc_libdir "@CMAKE_INSTALL_LIBDIR@")
        cmake_path(ABSOLUTE_PATH uvc_libdir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
        set(uvc_system_libdirs "@uvc_system_libdirs@")
        list(FIND uvc_system_libdirs "${uvc_libdir}" uvc_system)  # IN_LIST needs a policy set
        if(uvc_system GREATER -1)
            set(uvc_pc "@CMAKE_CURRENT_BINARY_DIR@/pc-system/hidl_uvc_client.pc")
        else()
            set(uvc_pc "@CMAKE_CURRENT_BINARY_DIR@/pc-rpath/hidl_uvc_client.pc")
        endif()
        set(uvc_pc_dir "@uvc_pc_dir@")
        cmake_path(ABSOLUTE_PATH uvc_pc_dir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
        file(INSTALL "${uvc_pc}" DESTINATION "${uvc_pc_dir}")
    ]] uvc_install_pc @ONLY)
    install(CODE "${uvc_install_pc}" COMPONENT library)

    # The stand-ins' folder is private, never searched by the loader: always
    # an rpath.
    configure_file(cmake/hidl_uvc_client-standins.pc.in
        ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-standins.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-standins.pc
        DESTINATION ${uvc_pc_dir} COMPONENT workstation)
endif()
