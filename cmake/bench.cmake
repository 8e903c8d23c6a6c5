# The trace function that bench/ compares the core with.
add_library(morvik_counting MODULE bench/counting.cpp)
target_link_libraries(morvik_counting PRIVATE morvik_flags)
set_target_properties(morvik_counting PROPERTIES
    PREFIX ""
    SUFFIX "${MORVIK_HOST_module_suffix}"
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
