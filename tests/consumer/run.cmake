# Usage: cmake -DSETTINGS=<file> -DSTEP=install|cmake|pkg-config|gadget -P run.cmake
#
# install:    installs the build's components into a fresh prefix, one by one
#             as the README does, and checks that no installed file points
#             back into the build tree and that the public library folder
#             holds only the library.
# cmake, pkg-config: configures this consumer against that prefix with the
#             build's compiler, toolchain file and emulator, builds it and runs
#             it (through the emulator in a cross build) with only the search
#             paths the package gave it.
# gadget:     the installed launcher finds the installed gadget bridge and
#             library.
# SETTINGS holds the build's values (written by tests/CMakeLists.txt).
include(${SETTINGS})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        list(JOIN ARGN " " command)
        message(FATAL_ERROR "failed (${rc}): ${command}")
    endif()
endfunction()

if(STEP STREQUAL "install")
    file(REMOVE_RECURSE ${UVC_PREFIX})
    foreach(component library workstation gadget)
        run(${CMAKE_COMMAND} --install ${UVC_BINARY_DIR} --prefix ${UVC_PREFIX} --component ${component})
    endforeach()
    # The stand-ins and the gadget bridge have the device libraries' plain
    # names: anywhere else here, any program's -llog would link them.
    file(GLOB public RELATIVE ${UVC_PREFIX}/${UVC_LIBDIR} ${UVC_PREFIX}/${UVC_LIBDIR}/*.so*)
    list(FILTER public EXCLUDE REGEX "^libhidl_uvc_client\\.so")
    if(public)
        message(FATAL_ERROR "not ours to put into the public library folder: ${public}")
    endif()
    # Text files must not name the build tree; binaries must not search it.
    file(GLOB_RECURSE texts ${UVC_PREFIX}/*.cmake ${UVC_PREFIX}/*.pc ${UVC_PREFIX}/*.h)
    foreach(f ${texts})
        file(READ ${f} content)
        foreach(tree ${UVC_BINARY_DIR} ${UVC_SOURCE_DIR})
            string(FIND "${content}" "${tree}" at)
            if(at GREATER -1)
                message(FATAL_ERROR "${f} names ${tree}")
            endif()
        endforeach()
    endforeach()
    file(GLOB_RECURSE binaries ${UVC_PREFIX}/${UVC_LIBDIR}/*.so* ${UVC_PREFIX}/${UVC_BINDIR}/*)
    set(n_binaries 0)
    foreach(f ${binaries})
        if(IS_SYMLINK ${f})
            continue()
        endif()
        math(EXPR n_binaries "${n_binaries} + 1")
        unset(runpath)  # READ_ELF leaves them alone when the entry is missing
        unset(rpath)
        file(READ_ELF ${f} RUNPATH runpath RPATH rpath)
        if("${runpath}:${rpath}" MATCHES "(^|[:;])/")
            message(FATAL_ERROR "${f} searches an absolute path: ${runpath} ${rpath}")
        endif()
        message(STATUS "${f}: RUNPATH ${runpath}")
    endforeach()
    list(LENGTH texts n_texts)
    message(STATUS "checked ${n_texts} headers and package files, ${n_binaries} libraries and programs")
    return()
endif()

# Programs find their libraries through what the package gave them alone.
unset(ENV{LD_LIBRARY_PATH})

if(STEP STREQUAL "gadget")
    set(launcher ${UVC_PREFIX}/${UVC_BINDIR}/uvc-gadget-launch)
    execute_process(COMMAND ${UVC_EMULATOR} ${launcher} --check
        OUTPUT_VARIABLE out ERROR_VARIABLE out RESULT_VARIABLE rc)
    message(STATUS "${out}")
    file(REAL_PATH ${UVC_PREFIX}/${UVC_GADGET_LIBDIR} bridge_dir)
    string(FIND "${out}" "runs on ${bridge_dir}/" at)
    if(NOT rc EQUAL 0 OR at EQUAL -1)
        message(FATAL_ERROR "${launcher} did not run the library on the bridge in ${bridge_dir}")
    endif()
    return()
endif()

set(dir ${UVC_BINARY_DIR}/tests/consumer/${STEP})
file(REMOVE_RECURSE ${dir})
set(options -G ${UVC_GENERATOR} -DCMAKE_BUILD_TYPE=${UVC_BUILD_TYPE}
    -DCMAKE_CXX_COMPILER=${UVC_CXX_COMPILER})
if(UVC_TOOLCHAIN_FILE)
    list(APPEND options -DCMAKE_TOOLCHAIN_FILE=${UVC_TOOLCHAIN_FILE})
endif()
if(UVC_EMULATOR)
    # A list ("qemu-arm;-L;/"), which a command line would split.
    file(WRITE ${dir}.cache.cmake "set(CMAKE_CROSSCOMPILING_EMULATOR \"${UVC_EMULATOR}\" CACHE STRING \"\")\n")
    list(APPEND options -C ${dir}.cache.cmake)
endif()
if(UVC_SANITIZE)
    # A sanitized library needs a sanitized program to load it; the vptr
    # check would need type information, which the library does not have.
    list(APPEND options "-DCMAKE_CXX_FLAGS=-fsanitize=${UVC_SANITIZE} -fno-sanitize=vptr"
        "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${UVC_SANITIZE}")
endif()
if(STEP STREQUAL "pkg-config")
    # Prepended to the toolchain's own search path, so also found in a cross build.
    set(ENV{PKG_CONFIG_PATH} ${UVC_PREFIX}/${UVC_LIBDIR}/pkgconfig)
    list(APPEND options -DCONSUMER_PKG_CONFIG=ON)
else()
    # Named directly: a cross toolchain searches packages only in its own root.
    list(APPEND options -Dhidl_uvc_client_DIR=${UVC_PREFIX}/${UVC_LIBDIR}/cmake/hidl_uvc_client)
endif()
run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR} -B ${dir} ${options})
run(${CMAKE_COMMAND} --build ${dir})
run(${UVC_EMULATOR} ${dir}/consumer)
