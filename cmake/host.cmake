# Asks the interpreter MORVIK_PYTHON about itself and offers
#   MORVIK_HOST_<key>     the answers of tools/describe_host.py
#   morvik_host_headers   its headers, as system headers
#   morvik_host_library   headers and libpython, for a program that has the host inside
#   morvik_host_embedded  the same for one that stands for the host, with a low heap

include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

if(NOT MORVIK_PYTHON)
    message(FATAL_ERROR "Name the host interpreter: -DMORVIK_PYTHON=/path/to/python2.6 "
        "(./morvik build does all of this)")
endif()

set(describe ${PROJECT_SOURCE_DIR}/tools/describe_host.py)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${describe} ${MORVIK_PYTHON})
execute_process(COMMAND ${MORVIK_PYTHON} -E ${describe}
    OUTPUT_VARIABLE answers ERROR_VARIABLE complaint RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "${MORVIK_PYTHON} cannot be a host: ${complaint}")
endif()
foreach(key executable version flavour includes static_library shared_library libraries
        run_paths module_suffix)
    string(REGEX MATCH "(^|\n)${key}=([^\n]*)" _ "${answers}")
    set(MORVIK_HOST_${key} "${CMAKE_MATCH_2}")
endforeach()
message(STATUS "Host: ${MORVIK_HOST_executable} (${MORVIK_HOST_version} ${MORVIK_HOST_flavour})")

add_library(morvik_host_headers INTERFACE)
target_include_directories(morvik_host_headers SYSTEM INTERFACE ${MORVIK_HOST_includes})
# A debug host's headers may be links to the release ones; resolved, they would bring along the
# release configuration that lies beside them.
check_cxx_compiler_flag(-fno-canonical-system-headers MORVIK_KEEPS_HEADER_LINKS)
if(MORVIK_KEEPS_HEADER_LINKS)
    target_compile_options(morvik_host_headers INTERFACE -fno-canonical-system-headers)
endif()

add_library(morvik_host_library INTERFACE)
target_link_libraries(morvik_host_library INTERFACE morvik_host_headers)
target_link_options(morvik_host_library INTERFACE -Wl,--export-dynamic)
# The interpreter's own posix module would have the linker warn of tempnam and tmpnam_r.
check_linker_flag(CXX -Wl,--no-warnings MORVIK_LINKER_CAN_BE_QUIET)
if(MORVIK_LINKER_CAN_BE_QUIET)
    target_link_options(morvik_host_library INTERFACE -Wl,--no-warnings)
endif()
if(MORVIK_HOST_static_library)
    target_link_libraries(morvik_host_library INTERFACE
        -Wl,--whole-archive ${MORVIK_HOST_static_library} -Wl,--no-whole-archive)
    foreach(name ${MORVIK_HOST_libraries})
        find_library(MORVIK_LIBRARY_${name} ${name})
        mark_as_advanced(MORVIK_LIBRARY_${name})
        if(MORVIK_LIBRARY_${name})
            target_link_libraries(morvik_host_library INTERFACE ${MORVIK_LIBRARY_${name}})
        else()
            # Only the run-time part of the library is installed: link that.
            set(found)
            foreach(folder ${CMAKE_C_IMPLICIT_LINK_DIRECTORIES}
                    ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES} ${MORVIK_HOST_run_paths})
                file(GLOB found ${folder}/lib${name}.so.[0-9]*)
                if(found)
                    break()
                endif()
            endforeach()
            if(NOT found)
                message(FATAL_ERROR "The host needs lib${name}, which is not installed")
            endif()
            list(GET found 0 found)
            target_link_libraries(morvik_host_library INTERFACE ${found})
        endif()
    endforeach()
else()
    target_link_libraries(morvik_host_library INTERFACE ${MORVIK_HOST_shared_library})
    get_filename_component(folder ${MORVIK_HOST_shared_library} DIRECTORY)
    list(APPEND MORVIK_HOST_run_paths ${folder})
endif()
if(MORVIK_HOST_run_paths)
    # The old kind of tag: the new one is not used for what an extension module needs.
    list(JOIN MORVIK_HOST_run_paths ":" joined)
    target_link_options(morvik_host_library INTERFACE
        -Wl,--disable-new-dtags "-Wl,-rpath,${joined}")
endif()

# The core names a thread by the low half of its thread state's address: where that is to lead back
# to the thread the heap lies low, and the program is not position independent.
add_library(morvik_host_embedded INTERFACE)
target_link_libraries(morvik_host_embedded INTERFACE morvik_host_library)
target_compile_options(morvik_host_embedded INTERFACE -fno-pie)
target_link_options(morvik_host_embedded INTERFACE -no-pie)
if(MORVIK_ASAN)
    target_sources(morvik_host_embedded INTERFACE
        ${PROJECT_SOURCE_DIR}/src/launcher/asan_low_blocks.cpp)
    set_source_files_properties(src/launcher/asan_low_blocks.cpp PROPERTIES
        COMPILE_OPTIONS -fno-sanitize=all)
endif()
