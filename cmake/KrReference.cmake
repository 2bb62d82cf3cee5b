# The target `docs`: the API reference of what is installed, made by doxygen, which nothing else needs.

set(kr_headers)
foreach(library krToolkit krRendCore krPicture krImport krDataset)
    get_target_property(headers ${library} HEADER_SET)
    list(APPEND kr_headers ${headers})
endforeach()
list(JOIN kr_headers "\n" kr_headers)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/docs/headers.txt CONTENT "@kr_headers@\n" @ONLY)

# In a client's own build `docs` is the client's name.
if(PROJECT_IS_TOP_LEVEL)
    add_custom_target(docs
        COMMAND ${PROJECT_SOURCE_DIR}/scripts/reference ${PROJECT_BINARY_DIR}/docs ${PROJECT_BINARY_DIR}/docs/headers.txt
        COMMENT "Making the API reference"
        VERBATIM)
endif()
