# What is installed, and the packages that are made of it:
#
#     cmake --install build/release --prefix /usr/local          # quilt, or quilt.exe, and what belongs to it
#     cmake --build build/release --target quilt_static
#     cpack -G DEB --config build/release/CPackConfig.cmake      # for Debian
#     cpack -G TGZ --config build/release/CPackConfig.cmake      # the static program, for any Linux
#     cpack -G ZIP --config build/windows/CPackConfig.cmake      # for Windows
#
# The same source, compiler and libraries give the same bytes. The moment that packages bear is that of the
# release, or SOURCE_DATE_EPOCH.

# --- when it was released

file(STRINGS CHANGELOG.md releases REGEX "^## [0-9.]+, ")
list(GET releases 0 release)
if(NOT release MATCHES "^## ${PROJECT_VERSION}, ([0-9]+)-([0-9]+)-([0-9]+)$")
    message(FATAL_ERROR "The first release in CHANGELOG.md is not ${PROJECT_VERSION}: ${release}")
endif()
set(release_day "${CMAKE_MATCH_1}-${CMAKE_MATCH_2}-${CMAKE_MATCH_3}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    set(release_epoch $ENV{SOURCE_DATE_EPOCH})
else()
    # Days since 1970 of that date, at noon.
    math(EXPR year "${CMAKE_MATCH_1} - (14 - ${CMAKE_MATCH_2}) / 12")
    math(EXPR month "${CMAKE_MATCH_2} + 12 * ((14 - ${CMAKE_MATCH_2}) / 12) - 3")
    math(EXPR release_epoch
        "(${CMAKE_MATCH_3} + (153 * ${month} + 2) / 5 + 365 * ${year} + ${year} / 4 - ${year} / 100 + ${year} / 400 - 719469) * 86400 + 43200")
endif()

# --- what is within, as an SPDX document

set(parts "zlib|${ZLIB_VERSION_STRING}|Zlib|https://zlib.net"
    "libstdc++|${CMAKE_CXX_COMPILER_VERSION}|GPL-3.0-or-later WITH GCC-exception-3.1|https://gcc.gnu.org")
set(licenses LICENSE licenses/zlib.txt licenses/GCC-runtime.txt)
if(WIN32)
    # Its headers tell the version of what is linked.
    file(STRINGS "${CMAKE_FIND_ROOT_PATH}/include/_mingw_mac.h" mingw_lines REGEX "define __MINGW64_VERSION_M")
    string(REGEX REPLACE ".*MAJOR +([0-9]+).*MINOR +([0-9]+).*" "\\1.\\2" mingw_version "${mingw_lines}")
    list(APPEND parts "mingw-w64|${mingw_version}|ZPL-2.1|https://www.mingw-w64.org")
    list(APPEND licenses licenses/mingw-w64.txt)
else()
    list(APPEND parts "OpenSSL|${OPENSSL_VERSION}|Apache-2.0|https://www.openssl.org")
    list(APPEND licenses licenses/OpenSSL.txt)
endif()
if(ewf_library)
    foreach(name libewf libbfio)
        file(STRINGS "${ewf_include}/${name}/definitions.h" version_line REGEX "_VERSION_STRING[ \t]")
        string(REGEX REPLACE ".*\"([0-9]+)\".*" "\\1" part_version "${version_line}")
        list(APPEND parts "${name}|${part_version}|LGPL-3.0-or-later|https://github.com/libyal/${name}")
    endforeach()
    list(APPEND licenses licenses/libewf.txt)
endif()

# Writes the document of the program that has these parts.
function(write_sbom path parts)
    set(packages "")
    set(relations "")
    foreach(part IN LISTS parts)
        string(REPLACE "|" ";" facts "${part}")
        list(GET facts 0 name)
        list(GET facts 1 version)
        list(GET facts 2 license)
        list(GET facts 3 home)
        string(REGEX REPLACE "[^A-Za-z0-9]" "-" id "${name}")
        string(APPEND packages ",
    {\"name\": \"${name}\", \"SPDXID\": \"SPDXRef-${id}\", \"versionInfo\": \"${version}\",
     \"downloadLocation\": \"${home}\", \"filesAnalyzed\": false, \"licenseConcluded\": \"${license}\",
     \"licenseDeclared\": \"${license}\", \"copyrightText\": \"NOASSERTION\"}")
        string(APPEND relations ",
    {\"spdxElementId\": \"SPDXRef-quilt\", \"relationshipType\": \"STATIC_LINK\",
     \"relatedSpdxElement\": \"SPDXRef-${id}\"}")
    endforeach()
    cmake_path(GET path STEM stem)
    file(CONFIGURE OUTPUT ${path} @ONLY CONTENT "{
  \"spdxVersion\": \"SPDX-2.3\", \"dataLicense\": \"CC0-1.0\", \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"${stem}-${PROJECT_VERSION}\",
  \"documentNamespace\": \"https://spdx.org/spdxdocs/${stem}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${release_epoch}\",
  \"creationInfo\": {\"created\": \"${release_day}T12:00:00Z\", \"creators\": [\"Tool: cmake-${CMAKE_VERSION}\"]},
  \"packages\": [
    {\"name\": \"quilt\", \"SPDXID\": \"SPDXRef-quilt\", \"versionInfo\": \"${PROJECT_VERSION}\",
     \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false, \"licenseConcluded\": \"MIT\",
     \"licenseDeclared\": \"MIT\", \"copyrightText\": \"Copyright (c) 2026 The quilt authors\"}${packages}],
  \"relationships\": [
    {\"spdxElementId\": \"SPDXRef-DOCUMENT\", \"relationshipType\": \"DESCRIBES\",
     \"relatedSpdxElement\": \"SPDXRef-quilt\"}${relations}]
}
")
endfunction()

# --- what is installed

include(GNUInstallDirs)
file(GLOB pages docs/*.md)
if(WIN32)
    # All in one folder that is unpacked somewhere.
    set(CMAKE_INSTALL_BINDIR .)
    set(CMAKE_INSTALL_DOCDIR doc)
    set(manual_folder doc)
    install(FILES completions/quilt.ps1 DESTINATION completions COMPONENT common)
else()
    set(CMAKE_INSTALL_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/quilt-sdb)
    set(manual_folder ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES LICENSE RENAME copyright DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT common)
    install(FILES completions/quilt.bash RENAME quilt
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT common)
    install(FILES completions/_quilt DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT common)
    install(FILES completions/quilt.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT common)
    install(PROGRAMS fleet/quilt_fleet.py RENAME quilt_fleet DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT common)
endif()
install(TARGETS quilt RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT program)
install(FILES docs/quilt.1 DESTINATION ${manual_folder} COMPONENT common)
install(FILES README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT common)
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT common)
install(DIRECTORY docs/schema docs/pictures DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT common)
install(DIRECTORY examples knowledge DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT common)
install(FILES ${licenses} DESTINATION ${CMAKE_INSTALL_DOCDIR}/licenses COMPONENT common)
write_sbom(${CMAKE_CURRENT_BINARY_DIR}/quilt.spdx.json "${parts}")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quilt.spdx.json DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT program)

# One file that runs on every Linux of its kind, whatever C library that has.
if(NOT WIN32 AND NOT sanitizers)
    add_executable(quilt_static EXCLUDE_FROM_ALL src/main.cpp)
    target_link_libraries(quilt_static PRIVATE quilt_core)
    own_target(quilt_static)
    harden(quilt_static)
    # What it takes of OpenSSL never asks the network, of which the linker warns.
    target_link_options(quilt_static PRIVATE -static-pie)
    set_target_properties(quilt_static PROPERTIES OUTPUT_NAME quilt RUNTIME_OUTPUT_DIRECTORY
        ${CMAKE_CURRENT_BINARY_DIR}/static)
    get_target_property(is_optimised quilt INTERPROCEDURAL_OPTIMIZATION)
    if(is_optimised)
        set_target_properties(quilt_static PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
    endif()
    execute_process(COMMAND getconf GNU_LIBC_VERSION OUTPUT_VARIABLE libc_version ERROR_QUIET
        OUTPUT_STRIP_TRAILING_WHITESPACE)
    string(REGEX REPLACE "[^0-9.]" "" libc_version "${libc_version}")
    write_sbom(${CMAKE_CURRENT_BINARY_DIR}/static/quilt.spdx.json
        "${parts};glibc|${libc_version}|LGPL-2.1-or-later|https://www.gnu.org/software/libc")
    install(TARGETS quilt_static RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        COMPONENT static EXCLUDE_FROM_ALL)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/static/quilt.spdx.json DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT static EXCLUDE_FROM_ALL)
    install(FILES licenses/glibc.txt DESTINATION ${CMAKE_INSTALL_DOCDIR}/licenses
        COMPONENT static EXCLUDE_FROM_ALL)
endif()

# --- packages

set(CPACK_PACKAGE_NAME quilt)
set(CPACK_PACKAGE_VENDOR "The quilt authors")
set(CPACK_PACKAGE_CONTACT "The quilt authors <quilt@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_CURRENT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
set(CPACK_SYSTEM_NAME ${system}-${CMAKE_SYSTEM_PROCESSOR})
# Debian has a program of this name, which tends patches.
set(CPACK_DEBIAN_PACKAGE_NAME quilt-sdb)
set(CPACK_DEBIAN_PACKAGE_CONFLICTS quilt)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "python3-distributed, jq, sqlite3")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Whatever the umask is.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/CPackModes.cmake)
file(CONFIGURE OUTPUT ${CPACK_PRE_BUILD_SCRIPTS} @ONLY CONTENT [[
file(CHMOD_RECURSE "${CPACK_TEMPORARY_DIRECTORY}" DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
]])
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_BINARY_DIR}/CPackSort.cmake)
file(CONFIGURE OUTPUT ${CPACK_POST_BUILD_SCRIPTS} @ONLY CONTENT [[
execute_process(COMMAND_ERROR_IS_FATAL ANY
    COMMAND python3 "@CMAKE_CURRENT_SOURCE_DIR@/cmake/sort_archives.py" $ENV{SOURCE_DATE_EPOCH} ${CPACK_PACKAGE_FILES})
]])
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_BINARY_DIR}/CPackChoice.cmake)
file(CONFIGURE OUTPUT ${CPACK_PROJECT_CONFIG_FILE} @ONLY CONTENT [[
set(ENV{TZ} UTC)
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    set(ENV{SOURCE_DATE_EPOCH} @release_epoch@)
endif()
set(program program)
if(CPACK_GENERATOR STREQUAL "TGZ")
    set(program static)
endif()
set(build "@CMAKE_CURRENT_BINARY_DIR@")
set(CPACK_INSTALL_CMAKE_PROJECTS "${build};quilt;${program};/;${build};quilt;common;/")
if(CPACK_GENERATOR STREQUAL "DEB")
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
endif()
]])
include(CPack)
