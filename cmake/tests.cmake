# What ctest runs for this build. A test's name begins with the build's, so that a failure
# tells its host.

get_filename_component(build_name ${PROJECT_BINARY_DIR} NAME)

# add_host_test(<name> COMMAND <program> ARGS...): a program under the host, as ./morvik python
# would run it.
function(add_host_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "COMMAND")
    add_test(NAME ${build_name}/${name} COMMAND ${arg_COMMAND}
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    set_tests_properties(${build_name}/${name} PROPERTIES TIMEOUT 600 ENVIRONMENT
        "PYTHONPATH=${PROJECT_BINARY_DIR}/lib:${PROJECT_SOURCE_DIR};PYTHONDONTWRITEBYTECODE=1")
endfunction()

# add_graded_test(<name> TIMEOUT <seconds> LONG_TIMEOUT <seconds> COMMAND <program> ARGS...): a
# host test that takes as long as it is given. It runs in short with all the others and, with
# MORVIK_TEST_LONG set, at its whole length by ./morvik test --long.
function(add_graded_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT;LONG_TIMEOUT" "COMMAND")
    add_host_test(${name} COMMAND ${arg_COMMAND})
    set_tests_properties(${build_name}/${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
    add_test(NAME ${build_name}/long/${name} CONFIGURATIONS long COMMAND ${arg_COMMAND}
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR})
    get_test_property(${build_name}/${name} ENVIRONMENT environment)
    set_tests_properties(${build_name}/long/${name} PROPERTIES LABELS long
        TIMEOUT ${arg_LONG_TIMEOUT} ENVIRONMENT "${environment};MORVIK_TEST_LONG=1")
endfunction()

set(extension_modules tmorvik26_vs2012_x64 sorrel_module)
if(TARGET sorrel_attach_module)
    list(APPEND extension_modules sorrel_attach_module)
endif()
foreach(module ${extension_modules})
    add_test(NAME ${build_name}/${module}_exports_only_its_entry COMMAND ${CMAKE_COMMAND}
        -DNM=${CMAKE_NM} -DMODULE=$<TARGET_FILE:${module}>
        -DENTRY=init$<TARGET_FILE_BASE_NAME:${module}>
        -P ${PROJECT_SOURCE_DIR}/cmake/check_exports.cmake)
endforeach()

# The other platform's file knows no interpreter, so that it can be built on this one. Linking
# tells whether the system has what it calls. Without the compiler ctest lists it as not run.
find_program(MORVIK_WINDOWS_CXX x86_64-w64-mingw32-g++)
add_test(NAME ${build_name}/windows_platform_compiles COMMAND ${MORVIK_WINDOWS_CXX}
    -std=c++17 -Wall -Wextra -Wshadow -Wpedantic -Werror -fno-exceptions -fno-rtti
    -I${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/src/platform/windows.cpp
    -shared -o ${PROJECT_BINARY_DIR}/windows_platform.dll -lws2_32)
if(NOT MORVIK_WINDOWS_CXX)
    set_tests_properties(${build_name}/windows_platform_compiles PROPERTIES DISABLED TRUE)
endif()

file(GLOB native_sources tests/native/*.cpp)
find_package(GTest)
if(native_sources AND GTest_FOUND)
    include(GoogleTest)
    add_executable(native_tests ${native_sources} src/sorrelmodule/all_threads.cpp)
    target_link_libraries(native_tests PRIVATE
        morvik_core morvik_host_embedded GTest::gtest GTest::gmock)
    target_compile_definitions(native_tests PRIVATE
        MORVIK_HOST_EXECUTABLE="${MORVIK_HOST_executable}")
    # tests/native/allocation.cpp makes allocations fail.
    target_link_options(native_tests PRIVATE
        LINKER:--wrap=malloc,--wrap=calloc,--wrap=strdup,--wrap=free)
    gtest_discover_tests(native_tests DISCOVERY_MODE PRE_TEST
        TEST_PREFIX ${build_name}/native/ PROPERTIES TIMEOUT 300)
endif()

add_host_test(launcher_behaves_like_the_host
    COMMAND morvik-python tests/launcher/test_same_as_host.py)

file(GLOB scenarios RELATIVE ${PROJECT_SOURCE_DIR} tests/python/test_*.py)
foreach(scenario ${scenarios})
    get_filename_component(name ${scenario} NAME_WE)
    add_host_test(python/${name} COMMAND morvik-python tests/python/runner.py ${scenario})
endforeach()
# It tells how long an editor waits.
set_tests_properties(${build_name}/python/test_dap_speed PROPERTIES RUN_SERIAL TRUE)

include(cmake/greenlet.cmake)
include(cmake/plain_hosts.cmake)
include(cmake/event_cost.cmake)
include(cmake/fuzz.cmake)
include(cmake/dap.cmake)
include(cmake/regrtest.cmake)
include(cmake/exception_stops.cmake)
include(cmake/soak.cmake)
include(cmake/faults.cmake)
