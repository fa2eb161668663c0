# How the project installs (cmake --install) and packs itself as a Debian
# package (cpack -G DEB): the tools in bin, the launcher in libexec (the
# installer starts it; nobody types its name), manual pages generated from
# the tools' own --help, bash completion, and the package's documents.
include(GNUInstallDirs)

set(ORU_PACKAGE_NAME orulauncher)
set(ORU_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/${ORU_PACKAGE_NAME})

configure_file(${PROJECT_SOURCE_DIR}/cmake/package/changelog.in
               ${PROJECT_BINARY_DIR}/package/changelog @ONLY)
# Debian wants documents compressed to the maximum, with no time stamp.
add_custom_command(
  OUTPUT ${PROJECT_BINARY_DIR}/package/changelog.gz
  COMMAND sh -c "gzip -9n -c changelog > changelog.gz"
  DEPENDS ${PROJECT_BINARY_DIR}/package/changelog
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/package
  VERBATIM)
add_custom_target(oru_package_docs ALL DEPENDS ${PROJECT_BINARY_DIR}/package/changelog.gz)

install(FILES ${PROJECT_SOURCE_DIR}/cmake/package/copyright
              ${PROJECT_BINARY_DIR}/package/changelog.gz
        DESTINATION ${ORU_DOC_DIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${ORU_PACKAGE_NAME})
set(CPACK_PACKAGE_VENDOR "Nuvex")
set(CPACK_PACKAGE_CONTACT "OruLauncher maintainers <orulauncher@nuvex.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "hand-over helper of the updater, with its support tools")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "OruLauncher is started by the updater's installer once the updater has\n"
    "replaced itself: it meets the installer on named semaphores and starts\n"
    "the Zelto application, or hands control back to the installer.\n"
    "oructl shows and drives that machinery (locks, preferences, the shared\n"
    "log); oru-installer-sim plays the installer's side of the hand-over.")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
