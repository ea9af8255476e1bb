# `unwarp-serve`: the web front end's files are built into the program (no network and no
# install step at run time), and the server links cpp-httplib.
file(GLOB UNWARP_WEB_STATIC CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/app/web/static/*)
set(UNWARP_WEB_EMBEDDED ${CMAKE_BINARY_DIR}/generated/WebStaticFiles.cpp)
add_custom_command(
    OUTPUT ${UNWARP_WEB_EMBEDDED}
    COMMAND ${CMAKE_COMMAND} -DOUTPUT=${UNWARP_WEB_EMBEDDED}
            "-DFILES=${UNWARP_WEB_STATIC}" -P ${PROJECT_SOURCE_DIR}/cmake/EmbedFiles.cmake
    DEPENDS ${UNWARP_WEB_STATIC} ${PROJECT_SOURCE_DIR}/cmake/EmbedFiles.cmake
    COMMENT "Embedding the web front end"
    VERBATIM)
file(GLOB UNWARP_WEB_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/app/web/*.cpp)
target_sources(unwarp-serve PRIVATE ${UNWARP_WEB_SOURCES} ${UNWARP_WEB_EMBEDDED})
target_link_libraries(unwarp-serve PRIVATE PkgConfig::CPP_HTTPLIB)
