# Installs the build into a scratch prefix and builds and runs the consumer against it, through
# the CMake package and through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
        RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "install failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build
                        -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix -DCMAKE_BUILD_TYPE=${CONFIG}
                        "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}"
        RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "consumer configure failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "consumer build failed")
endif()
execute_process(COMMAND ${WORK_DIR}/build/consumer RESULT_VARIABLE rc)
if(rc)
    message(FATAL_ERROR "consumer failed: ${rc}")
endif()
file(GLOB pc ${WORK_DIR}/prefix/lib*/pkgconfig/krcore.pc)
if(NOT pc)
    message(FATAL_ERROR "krcore.pc not installed")
endif()
file(READ ${pc} text)
if(NOT text MATCHES "-lkrcorem" OR NOT text MATCHES "Version: 1.0.0")
    message(FATAL_ERROR "krcore.pc is incomplete")
endif()
