# What an event costs beyond time. A program of its own, since it replaces the allocator; on
# Linux only, whose kernel it has watch for system calls.
if(GTest_FOUND AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
    include(GoogleTest)
    set(counted malloc calloc realloc)
    if(MORVIK_HOST_flavour STREQUAL "debug")
        list(APPEND counted _PyObject_DebugMalloc _PyObject_DebugRealloc)
    else()
        list(APPEND counted PyObject_Malloc PyObject_Realloc)
    endif()
    list(TRANSFORM counted PREPEND -Wl,--wrap=)
    add_executable(event_cost tests/event_cost/event_cost.cpp)
    target_link_libraries(event_cost PRIVATE morvik_core morvik_host_embedded GTest::gtest_main)
    target_link_options(event_cost PRIVATE ${counted})
    target_compile_definitions(event_cost PRIVATE
        MORVIK_HOST_EXECUTABLE="${MORVIK_HOST_executable}"
        MORVIK_PROGRAM="${PROJECT_SOURCE_DIR}/tests/event_cost/program.py")
    gtest_discover_tests(event_cost DISCOVERY_MODE PRE_TEST
        TEST_PREFIX ${build_name}/ PROPERTIES TIMEOUT 60)
endif()
