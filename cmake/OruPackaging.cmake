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
# One string: the lines of a list would be joined with ';'.
string(CONCAT CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "OruLauncher is started by the updater's installer once the updater has\n"
  "replaced itself: it meets the installer on named semaphores and starts\n"
  "the Zelto application, or hands control back to the installer.\n"
  "oructl shows and drives that machinery (locks, preferences, the shared\n"
  "log) and collects what a support request needs; oru-installer-sim plays\n"
  "the installer's side of the hand-over.")
# Loaded when first needed, not linked: the console user's seat (libsystemd)
# and application bundles' property lists (libplist, whose 2.0 interface is
# ".so.3" in Debian 12 and ".so.4" after it). Without them there is no
# console user and no bundle version; everything else works.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "libsystemd0, libplist-2.0-4 | libplist3")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)

# oru_install_program(TARGET DESTINATION): installs an executable; when the
# install strips (as the package does), the compilers' version notes in
# .comment and .note go too, as Debian's own strip step removes them.
function(oru_install_program target destination)
  install(TARGETS ${target} RUNTIME DESTINATION ${destination})
  set(installed "\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${destination}/$<TARGET_FILE_NAME:${target}>")
  install(CODE "
    if(CMAKE_INSTALL_DO_STRIP)
      execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
                              --remove-section=.note \"${installed}\"
                      COMMAND_ERROR_IS_FATAL ANY)
    endif()")
endfunction()
