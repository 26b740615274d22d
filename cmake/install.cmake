# What `cmake --install` puts under the prefix for the "library" component:
# libhidl_uvc_client.so, its public headers under include/hidl_uvc_client, the
# CMake package (find_package(hidl_uvc_client CONFIG) gives
# hidl_uvc_client::hidl_uvc_client) and hidl_uvc_client.pc. The stand-ins and
# uvc-host are the "workstation" component (platform/, tools/).
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
    set(uvc_pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
else()
    file(RELATIVE_PATH uvc_pc_up /${uvc_pc_dir} /)
    string(REGEX REPLACE "/$" "" uvc_pc_up "${uvc_pc_up}")
    set(uvc_pc_prefix "\${pcfiledir}/${uvc_pc_up}")
    set(uvc_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
    set(uvc_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(cmake/hidl_uvc_client.pc.in ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client.pc DESTINATION ${uvc_pc_dir} COMPONENT library)
if(UVC_STANDINS)
    configure_file(cmake/hidl_uvc_client-standins.pc.in
        ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-standins.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/hidl_uvc_client-standins.pc
        DESTINATION ${uvc_pc_dir} COMPONENT workstation)
endif()
