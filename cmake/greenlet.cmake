# What switches stacks as greenlets do, for tests. In a folder of its own, where no program that is
# debugged finds it by chance.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    add_library(greenlet MODULE tests/greenlet/greenlet.cpp)
    target_link_libraries(greenlet PRIVATE morvik_flags)
    set_target_properties(greenlet PROPERTIES
        PREFIX ""
        SUFFIX "${MORVIK_HOST_module_suffix}"
        LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/greenlet)
endif()
