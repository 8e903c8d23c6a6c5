# The core where memory is refused. A program of its own: the core's calls lead through
# tests/faults, and so do the allocators of the interpreter, which has to be a static library for
# that. Not under the sanitizers, which have an allocator of their own and refuse nothing.
if(MORVIK_ASAN OR NOT MORVIK_HOST_static_library OR NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
    return()
endif()

set(calls ${PROJECT_SOURCE_DIR}/tests/faults/calls.def)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${calls})
file(STRINGS ${calls} lines REGEX "^[A-Z]+\\(")
set(wrapped_in_core)
set(wrapped_everywhere)
foreach(line ${lines})
    string(REGEX REPLACE "^[A-Z]+\\((.*)\\)$" "-Wl,--wrap=\\1" wrap ${line})
    if(line MATCHES "^(ALLOCATOR|COLLECTOR)")
        list(APPEND wrapped_everywhere ${wrap})
    else()
        list(APPEND wrapped_in_core ${wrap})
    endif()
endforeach()

set(core_object ${PROJECT_BINARY_DIR}/core_with_faults.o)
add_custom_command(OUTPUT ${core_object}
    COMMAND ${CMAKE_CXX_COMPILER} -r -nostdlib -o ${core_object} ${wrapped_in_core}
        $<TARGET_OBJECTS:morvik_core>
    DEPENDS $<TARGET_OBJECTS:morvik_core>
    COMMAND_EXPAND_LISTS VERBATIM)
add_executable(faults tests/faults/injection.cpp tests/faults/calls.cpp ${core_object})
set_source_files_properties(${core_object} PROPERTIES EXTERNAL_OBJECT TRUE GENERATED TRUE)
target_link_libraries(faults PRIVATE morvik_flags morvik_host_embedded ${CMAKE_DL_LIBS})
target_link_options(faults PRIVATE ${wrapped_everywhere})
target_compile_definitions(faults PRIVATE
    MORVIK_HOST_EXECUTABLE="${MORVIK_HOST_executable}")
add_graded_test(faults TIMEOUT 300 LONG_TIMEOUT 7200
    COMMAND faults tests/faults/faults.py)
